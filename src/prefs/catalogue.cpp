#include "prefs/catalogue.h"

#include <array>

namespace zarn::catalogue {
namespace {

constexpr auto kNone = PreferenceFlags::None;
constexpr auto kPrivate = PreferenceFlags::Private;
constexpr auto kAdvanced = PreferenceFlags::Advanced;
constexpr auto kHidden = PreferenceFlags::Hidden;

constexpr std::uint16_t port(std::uint16_t number) {
  return number;
}

constexpr char kAlbumTypes[] = "1df3cd16-faf2-4d37-8349-1fcf3713bf1d";
constexpr char kLocation[] = "0a348865-4f87-46dc-8bb2-f37637975724";

constexpr std::int32_t kMiB = 1024 * 1024;

// Addresses of the vendor's services, as defaults; the media server may set others.
constexpr char kConfigurationUrl[] = "https://app.zarn.example/setup";
constexpr char kOnlineUrl[] = "https://online.zarn.example";
constexpr char kWebDesktopUrl[] = "https://app.zarn.example/desktop";
constexpr char kWebAuthUrl[] = "https://app.zarn.example/auth";
constexpr char kPubSubServer[] = "pubsub.zarn.example";
constexpr char kUniversalMetadataUrl[] = "https://metadata.zarn.example/universal";
constexpr char kMetadataUrl[] = "https://metadata.zarn.example";

// clang-format off
constexpr Row kRows[] = {
    {"FriendlyName", "", kNone, "general"},
    {"sendCrashReports", true, kNone, "general"},
    {"CrashUploadRetries", 3, kHidden, ""},
    {"FSEventLibraryUpdatesEnabled", false, kNone, "library"},
    {"FSEventLibraryPartialScanEnabled", false, kNone, "library"},
    {"ScheduledLibraryUpdatesEnabled", false, kNone, "library"},
    {"ScheduledLibraryUpdateInterval", 3600, kNone, "library"},
    {"autoEmptyTrash", true, kNone, "library"},
    {"allowMediaDeletion", false, kNone, "library"},
    {"allowMediaDeletionLanOnly", false, kHidden, "library"},
    {"OnDeckWindow", 12, kAdvanced, "library"},
    {"OnDeckLimit", 40, kAdvanced, "library"},
    {"OnDeckIncludePremieres", true, kAdvanced, "library"},
    {"SmartShuffleMusic", true, kHidden, "library"},
    {"MusicSeparateAlbumTypes", "enabled", kAdvanced, "library", kAlbumTypes},
    {"LibraryDefaultVisibility", 0, kHidden, "library"},
    {"CinemaTrailersType", 1, kNone, "extras"},
    {"CinemaTrailersFromLibrary", true, kNone, "extras"},
    {"CinemaTrailersFromTheater", false, kNone, "extras"},
    {"CinemaTrailersFromBluRay", false, kNone, "extras"},
    {"CinemaTrailersPrerollID", "", kNone, "extras"},
    {"disableCapabilityChecking", false, kHidden, "channels"},
    {"MachineIdentifier", "", kPrivate, ""},
    {"AllowHighOutputBitrates", false, kHidden, "transcoder"},
    {"ConfigurationUrl", kConfigurationUrl, kHidden, ""},
    {"AnonymousMachineIdentifier", "", kPrivate, ""},
    {"ProcessedMachineIdentifier", "", kPrivate, ""},
    {"OldestPreviousVersion", "", kHidden, ""},
    {"AcceptedEULA", false, kHidden, ""},
    {"LanguageInCloud", false, kHidden, ""},
    {"ArticleStrings", "the,das,der,a,an,el,la", kHidden, ""},
    {"TranscoderVideoResolutionLimit", "0x0", kHidden, ""},
    {"TranscoderPhotoFileSizeLimitMiB", 100, kHidden, ""},
    {"SetupLanguageCode", 1033, kHidden, ""},
    {"LocalAppDataPath", "", kHidden, ""},
    {"PluginsLaunchDebug", false, kHidden, ""},
    {"JobsLaunchDebug", false, kHidden, ""},
    {"TranscoderStreamingBufferSize", 4 * kMiB, kHidden, "general"},
    {"AwayModeSupported", true, kAdvanced, "general"},
    {"EnableIPv6", false, kNone, "network"},
    {"secureConnections", 1, kNone, "network"},
    {"customCertificatePath", "", kAdvanced, "network"},
    {"customCertificateKey", "", kAdvanced, "network"},
    {"customCertificateDomain", "", kAdvanced, "network"},
    {"PreferredNetworkInterface", "", kAdvanced, "network"},
    {"DisableTLSv1_0", true, kAdvanced, "network"},
    {"TLSKeyLogPath", "", kPrivate, "network"},
    {"allowedHttpOrigins", "", kHidden, "network"},
    {"GdmEnabled", true, kAdvanced, "network"},
    {"PublishServerOnZarnOnlineKey", false, kHidden, "general"},
    {"ZarnOnlineMail", "", kPrivate, ""},
    {"ZarnOnlineToken", "", kPrivate, ""},
    {"ZarnOnlineHome", false, kHidden, ""},
    {"ZarnOnlineUsername", "", kPrivate, ""},
    {"ZarnOnlineUrl", kOnlineUrl, kHidden, ""},
    {"ZarnWebDesktopUrl", kWebDesktopUrl, kHidden, ""},
    {"ZarnWebAuthUrl", kWebAuthUrl, kHidden, ""},
    {"EnablePinAuth", true, kHidden, ""},
    {"ManualPortMappingMode", false, kHidden, ""},
    {"ManualPortMappingPort", port(0)},
    {"LastAutomaticMappedPort", port(0)},
    {"PushNotificationsEnabled", false, kNone, "general"},
    {"TranscoderQuality", 0, kNone, "transcoder"},
    {"SegmentedTranscoderTimeout", 30, kHidden, "transcoder"},
    {"TranscoderTempDirectory", "", kAdvanced, "transcoder"},
    {"TranscoderDefaultDuration", 120, kHidden, "transcoder"},
    {"TranscoderThrottleBuffer", 60, kAdvanced, "transcoder"},
    {"TranscoderPruneBuffer", 300, kHidden, "transcoder"},
    {"TranscoderLivePruneBuffer", 3600, kHidden, "transcoder"},
    {"TranscoderH264Preset", "veryfast", kHidden, "transcoder"},
    {"TranscoderH264BackgroundPreset", "veryfast", kAdvanced, "transcoder"},
    {"TranscoderH264Options", "", kHidden, "transcoder"},
    {"TranscoderH264OptionsOverride", "", kHidden, "transcoder"},
    {"TranscoderH264MinimumCRF", 16.0, kHidden, "transcoder"},
    {"TranscoderLogLevel", "error", kHidden, "transcoder"},
    {"TranscoderToneMapping", true, kAdvanced, "transcoder"},
    {"TranscoderCanOnlyRemuxVideo", false, kNone, "transcoder"},
    {"HardwareAcceleratedCodecs", false, kNone, "transcoder"},
    {"HardwareAcceleratedEncoders", true, kNone, "transcoder"},
    {"SystemAudioCodecs", true, kHidden, "transcoder"},
    {"HardwareDevicePath", "", kAdvanced, "transcoder"},
    {"VaapiDriver", "", kHidden, "transcoder"},
    {"VaapiKernelDriver", "", kHidden, "transcoder"},
    {"PluginsLaunchTimeout", 180, kHidden, ""},
    {"SyncMyZarnLoginGCDeferral", 14, kHidden, ""},
    {"SyncPagingItemsLimit", 100, kHidden, ""},
    {"BackgroundQueueIdlePaused", false, kHidden, ""},
    {"BackgroundQueueIdleInterval", 600, kHidden, ""},
    {"BackgroundQueueGCInterval", 3600, kHidden, ""},
    {"BackgroundTranscodeLowPriority", false, kAdvanced, "transcoder"},
    {"ScannerLowPriority", false, kAdvanced, "library"},
    {"WanPerStreamMaxUploadRate", 0, kNone, "network"},
    {"WanTotalMaxUploadRate", 0, kNone, "network"},
    {"WanPerUserStreamCount", 0, kNone, "network"},
    {"LanNetworksBandwidth", "", kAdvanced, "network"},
    {"MinutesAllowedPaused", 0, kAdvanced, "network"},
    {"forceAutoAdjustQuality", false, kHidden, ""},
    {"EnableABRDebugOverlay", false, kHidden, ""},
    {"ABRKeepOldTranscodes", false, kHidden, ""},
    {"ForceABRDisabled", false, kHidden, ""},
    {"TreatWanIpAsLocal", true, kAdvanced, "network"},
    {"RelayEnabled", true, kNone, "network"},
    {"TranscodeCountLimit", 0, kNone, "transcoder"},
    {"CloudSyncLastUpdatedAt", 0, kHidden, ""},
    {"CloudSyncMaxUploadRate", 0, kHidden, ""},
    {"CloudSyncNeedsUpdate", false, kHidden, ""},
    {"logDebug", true, kAdvanced, "general"},
    {"LogVerbose", false, kAdvanced, "general"},
    {"LogNumFiles", 5, kPrivate, ""},
    {"LogTokensForDebug", false, kHidden, ""},
    {"LogMemoryUse", false, kHidden, ""},
    {"LogSynchronous", false, kHidden, ""},
    {"MinimumProgressTime", 60000, kHidden, ""},
    {"customConnections", "", kAdvanced, "network"},
    {"allowedNetworks", "", kAdvanced, "network"},
    {"WebHooksEnabled", true, kNone, "network"},
    {"ButlerStartHour", 2, kNone, "butler"},
    {"ButlerEndHour", 5, kNone, "butler"},
    {"ButlerTaskBackupDatabase", true, kNone, "butler"},
    {"ButlerDatabaseBackupPath", "", kAdvanced, "butler"},
    {"ButlerTaskOptimizeDatabase", true, kNone, "butler"},
    {"ButlerTaskCleanOldBundles", true, kNone, "butler"},
    {"ButlerTaskCleanOldCacheFiles", true, kNone, "butler"},
    {"ButlerTaskRefreshLocalMedia", true, kNone, "butler"},
    {"ButlerTaskRefreshLibraries", false, kNone, "butler"},
    {"ButlerTaskUpgradeMediaAnalysis", true, kNone, "butler"},
    {"ButlerTaskRefreshPeriodicMetadata", true, kNone, "butler"},
    {"ButlerTaskDeepMediaAnalysis", true, kNone, "butler"},
    {"ButlerTaskGarbageCollectBlobs", true, kHidden, "butler"},
    {"ButlerTaskRefreshEpgGuides", true, kHidden, "butler"},
    {"ButlerTaskReverseGeocode", true, kHidden, "butler"},
    {"GenerateIndexFilesDuringAnalysis", false, kHidden, ""},
    {"ButlerTaskGenerateMediaIndexFiles", false, kHidden, "butler"},
    {"GenerateBIFKeyframesOnly", true, kHidden, "library"},
    {"GenerateBIFBehavior", "never", kNone, "library"},
    {"GenerateBIFFrameInterval", 2, kHidden, "library"},
    {"GenerateIntroMarkerBehavior", "scheduled", kNone, "library"},
    {"GenerateChapterThumbBehavior", "scheduled", kNone, "library"},
    {"LoudnessAnalysisBehavior", "scheduled", kNone, "library"},
    {"LongRunningJobThreads", 0, kHidden, ""},
    {"LoudnessAnalysisThreads", 0, kHidden, ""},
    {"LoudnessReplayGainStyle", "album", kHidden, ""},
    {"RadioTopTracksPerAlbum", 3, kHidden, ""},
    {"RadioDaysSinceLastPlayed", 1, kHidden, ""},
    {"RadioDirectoryThreshold", 1000, kHidden, ""},
    {"RadioDirectoryLimit", 10, kHidden, ""},
    {"LocationVisibility", 1, kAdvanced, "library", kLocation},
    {"CertificateVersion", 1, kHidden, ""},
    {"CertificateUUID", "", kPrivate, ""},
    {"LyricFindTerritory", "", kHidden, ""},
    {"AutoTagIndexThreshold", 0.5, kHidden, ""},
    {"AutoTagIndexSearchThreshold", 0.5, kHidden, ""},
    {"MetricsEpoch", 1, kHidden, ""},
    {"PubSubServer", kPubSubServer, kPrivate, ""},
    {"PubSubServerPing", 0, kPrivate, ""},
    {"PubSubServerRegion", "", kPrivate, ""},
    {"allowLocalhostOnly", false, kHidden, ""},
    {"enableLocalSecurity", false, kHidden, ""},
    {"TunerServicePort", port(0)},
    {"UniveralMetadataProviderUrl", kUniversalMetadataUrl, kHidden, ""},
    {"MetadataProviderUrl", kMetadataUrl, kHidden, ""},
    {"EyeQUser", "", kPrivate, ""},
    {"DvrShowUnsupportedDevices", false, kHidden, ""},
    {"DvrComskipRemoveIntermediates", true, kHidden, ""},
    {"DvrComskipKeepOriginal", false, kHidden, ""},
    {"SubtitlesPersistIfAdmin", true, kHidden, ""},
    {"DvrIncrementalEpgLoader", false, kHidden, ""},
    {"EpgUseSelectedProvider", true, kHidden, ""},
    {"MetadataUseDevProvider", false, kHidden, ""},
    {"SyncMPRootDirectoryOverride", "", kHidden, ""},
    {"MediaServerManagerAllowHttp", false, kHidden, ""},
    {"AugmentationProviderEnvironment", "prod", kHidden, ""},
    {"ZarnOnlineEnvironment", "prod", kHidden, ""},
    {"MergedRecentlyAdded", true, kHidden, ""},
    {"EnableDatabaseTrace", false, kHidden, ""},
};
// clang-format on

static_assert(std::size(kRows) == 175, "the settings screen of every client counts on all of them");

}  // namespace

std::span<const Row> rows() noexcept {
  return kRows;
}

std::shared_ptr<Preference> makePreference(const Row& row, const Preference::Overrides& overrides) {
  return std::visit(
      [&](const auto& defaultValue) {
        return std::make_shared<Preference>(std::string(row.identifier), defaultValue, row.flags, row.group,
                                            row.featureId, std::string(), overrides);
      },
      row.defaultValue);
}

}  // namespace zarn::catalogue
