// The list of every preference that the server knows, as data, and the typed names of
// those that this program reads itself.
//
//   const bool verbose = Preferences::instance().get(preference::kLogVerbose);
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "util/product_names.h"

namespace zarn {

enum class PreferenceFlags : std::uint32_t {
  None = 0,
  Private = 1,          ///< never listed for a client
  Advanced = 2,         ///< shown among the advanced settings
  Hidden = 4,           ///< not shown
  RequiresSignIn = 16,  ///< listed only while somebody is signed in
};

namespace catalogue {

struct Row {
  std::string_view identifier;
  /// The type of the default is the type of the preference; 16 bits mean an Int
  /// that is always hidden.
  std::variant<const char*, bool, std::int32_t, std::uint16_t, double> defaultValue;
  PreferenceFlags flags = PreferenceFlags::None;
  const char* group = "";
  const char* featureId = "";
};

using enum PreferenceFlags;

constexpr std::uint16_t port(std::uint16_t number) {
  return number;
}

inline constexpr char kAlbumTypes[] = "1df3cd16-faf2-4d37-8349-1fcf3713bf1d";
inline constexpr char kLocation[] = "0a348865-4f87-46dc-8bb2-f37637975724";

inline constexpr std::int32_t kMiB = 1024 * 1024;

// Addresses of the vendor's services, as defaults; the media server may set others.
inline constexpr char kConfigurationUrl[] = "https://app.zarn.example/setup";
inline constexpr char kOnlineUrl[] = "https://online.zarn.example";
inline constexpr char kWebDesktopUrl[] = "https://app.zarn.example/desktop";
inline constexpr char kWebAuthUrl[] = "https://app.zarn.example/auth";
inline constexpr char kPubSubServer[] = "pubsub.zarn.example";
inline constexpr char kUniversalMetadataUrl[] = "https://metadata.zarn.example/universal";
inline constexpr char kMetadataUrl[] = "https://metadata.zarn.example";

/// In the order of registration.
// clang-format off
inline constexpr Row kRows[] = {
    {"FriendlyName", "", None, "general"},
    {"sendCrashReports", true, None, "general"},
    {"CrashUploadRetries", 3, Hidden, ""},
    {"FSEventLibraryUpdatesEnabled", false, None, "library"},
    {"FSEventLibraryPartialScanEnabled", false, None, "library"},
    {"ScheduledLibraryUpdatesEnabled", false, None, "library"},
    {"ScheduledLibraryUpdateInterval", 3600, None, "library"},
    {"autoEmptyTrash", true, None, "library"},
    {"allowMediaDeletion", false, None, "library"},
    {"allowMediaDeletionLanOnly", false, Hidden, "library"},
    {"OnDeckWindow", 12, Advanced, "library"},
    {"OnDeckLimit", 40, Advanced, "library"},
    {"OnDeckIncludePremieres", true, Advanced, "library"},
    {"SmartShuffleMusic", true, Hidden, "library"},
    {"MusicSeparateAlbumTypes", "enabled", Advanced, "library", kAlbumTypes},
    {"LibraryDefaultVisibility", 0, Hidden, "library"},
    {"CinemaTrailersType", 1, None, "extras"},
    {"CinemaTrailersFromLibrary", true, None, "extras"},
    {"CinemaTrailersFromTheater", false, None, "extras"},
    {"CinemaTrailersFromBluRay", false, None, "extras"},
    {"CinemaTrailersPrerollID", "", None, "extras"},
    {"disableCapabilityChecking", false, Hidden, "channels"},
    {"MachineIdentifier", "", Private, ""},
    {"AllowHighOutputBitrates", false, Hidden, "transcoder"},
    {"ConfigurationUrl", kConfigurationUrl, Hidden, ""},
    {"AnonymousMachineIdentifier", "", Private, ""},
    {"ProcessedMachineIdentifier", "", Private, ""},
    {"OldestPreviousVersion", "", Hidden, ""},
    {"AcceptedEULA", false, Hidden, ""},
    {"LanguageInCloud", false, Hidden, ""},
    {"ArticleStrings", "the,das,der,a,an,el,la", Hidden, ""},
    {"TranscoderVideoResolutionLimit", "0x0", Hidden, ""},
    {"TranscoderPhotoFileSizeLimitMiB", 100, Hidden, ""},
    {"SetupLanguageCode", 1033, Hidden, ""},
    {"LocalAppDataPath", "", Hidden, ""},
    {"PluginsLaunchDebug", false, Hidden, ""},
    {"JobsLaunchDebug", false, Hidden, ""},
    {"TranscoderStreamingBufferSize", 4 * kMiB, Hidden, "general"},
    {"AwayModeSupported", true, Advanced, "general"},
    {"EnableIPv6", false, None, "network"},
    {"secureConnections", 1, None, "network"},
    {"customCertificatePath", "", Advanced, "network"},
    {"customCertificateKey", "", Advanced, "network"},
    {"customCertificateDomain", "", Advanced, "network"},
    {"PreferredNetworkInterface", "", Advanced, "network"},
    {"DisableTLSv1_0", true, Advanced, "network"},
    {"TLSKeyLogPath", "", Private, "network"},
    {"allowedHttpOrigins", "", Hidden, "network"},
    {"GdmEnabled", true, Advanced, "network"},
    {"PublishServerOnZarnOnlineKey", false, Hidden, "general"},
    {"ZarnOnlineMail", "", Private, ""},
    {"ZarnOnlineToken", "", Private, ""},
    {"ZarnOnlineHome", false, Hidden, ""},
    {"ZarnOnlineUsername", "", Private, ""},
    {"ZarnOnlineUrl", kOnlineUrl, Hidden, ""},
    {"ZarnWebDesktopUrl", kWebDesktopUrl, Hidden, ""},
    {"ZarnWebAuthUrl", kWebAuthUrl, Hidden, ""},
    {"EnablePinAuth", true, Hidden, ""},
    {"ManualPortMappingMode", false, Hidden, ""},
    {"ManualPortMappingPort", port(0)},
    {"LastAutomaticMappedPort", port(0)},
    {"PushNotificationsEnabled", false, None, "general"},
    {"TranscoderQuality", 0, None, "transcoder"},
    {"SegmentedTranscoderTimeout", 30, Hidden, "transcoder"},
    {"TranscoderTempDirectory", "", Advanced, "transcoder"},
    {"TranscoderDefaultDuration", 120, Hidden, "transcoder"},
    {"TranscoderThrottleBuffer", 60, Advanced, "transcoder"},
    {"TranscoderPruneBuffer", 300, Hidden, "transcoder"},
    {"TranscoderLivePruneBuffer", 3600, Hidden, "transcoder"},
    {"TranscoderH264Preset", "veryfast", Hidden, "transcoder"},
    {"TranscoderH264BackgroundPreset", "veryfast", Advanced, "transcoder"},
    {"TranscoderH264Options", "", Hidden, "transcoder"},
    {"TranscoderH264OptionsOverride", "", Hidden, "transcoder"},
    {"TranscoderH264MinimumCRF", 16.0, Hidden, "transcoder"},
    {"TranscoderLogLevel", "error", Hidden, "transcoder"},
    {"TranscoderToneMapping", true, Advanced, "transcoder"},
    {"TranscoderCanOnlyRemuxVideo", false, None, "transcoder"},
    {"HardwareAcceleratedCodecs", false, None, "transcoder"},
    {"HardwareAcceleratedEncoders", true, None, "transcoder"},
    {"SystemAudioCodecs", true, Hidden, "transcoder"},
    {"HardwareDevicePath", "", Advanced, "transcoder"},
    {"VaapiDriver", "", Hidden, "transcoder"},
    {"VaapiKernelDriver", "", Hidden, "transcoder"},
    {"PluginsLaunchTimeout", 180, Hidden, ""},
    {"SyncMyZarnLoginGCDeferral", 14, Hidden, ""},
    {"SyncPagingItemsLimit", 100, Hidden, ""},
    {"BackgroundQueueIdlePaused", false, Hidden, ""},
    {"BackgroundQueueIdleInterval", 600, Hidden, ""},
    {"BackgroundQueueGCInterval", 3600, Hidden, ""},
    {"BackgroundTranscodeLowPriority", false, Advanced, "transcoder"},
    {"ScannerLowPriority", false, Advanced, "library"},
    {"WanPerStreamMaxUploadRate", 0, None, "network"},
    {"WanTotalMaxUploadRate", 0, None, "network"},
    {"WanPerUserStreamCount", 0, None, "network"},
    {"LanNetworksBandwidth", "", Advanced, "network"},
    {"MinutesAllowedPaused", 0, Advanced, "network"},
    {"forceAutoAdjustQuality", false, Hidden, ""},
    {"EnableABRDebugOverlay", false, Hidden, ""},
    {"ABRKeepOldTranscodes", false, Hidden, ""},
    {"ForceABRDisabled", false, Hidden, ""},
    {"TreatWanIpAsLocal", true, Advanced, "network"},
    {"RelayEnabled", true, None, "network"},
    {"TranscodeCountLimit", 0, None, "transcoder"},
    {"CloudSyncLastUpdatedAt", 0, Hidden, ""},
    {"CloudSyncMaxUploadRate", 0, Hidden, ""},
    {"CloudSyncNeedsUpdate", false, Hidden, ""},
    {"logDebug", true, Advanced, "general"},
    {"LogVerbose", false, Advanced, "general"},
    {"LogNumFiles", 5, Private, ""},
    {"LogTokensForDebug", false, Hidden, ""},
    {"LogMemoryUse", false, Hidden, ""},
    {"LogSynchronous", false, Hidden, ""},
    {"MinimumProgressTime", 60000, Hidden, ""},
    {"customConnections", "", Advanced, "network"},
    {"allowedNetworks", "", Advanced, "network"},
    {"WebHooksEnabled", true, None, "network"},
    {"ButlerStartHour", 2, None, "butler"},
    {"ButlerEndHour", 5, None, "butler"},
    {"ButlerTaskBackupDatabase", true, None, "butler"},
    {"ButlerDatabaseBackupPath", "", Advanced, "butler"},
    {"ButlerTaskOptimizeDatabase", true, None, "butler"},
    {"ButlerTaskCleanOldBundles", true, None, "butler"},
    {"ButlerTaskCleanOldCacheFiles", true, None, "butler"},
    {"ButlerTaskRefreshLocalMedia", true, None, "butler"},
    {"ButlerTaskRefreshLibraries", false, None, "butler"},
    {"ButlerTaskUpgradeMediaAnalysis", true, None, "butler"},
    {"ButlerTaskRefreshPeriodicMetadata", true, None, "butler"},
    {"ButlerTaskDeepMediaAnalysis", true, None, "butler"},
    {"ButlerTaskGarbageCollectBlobs", true, Hidden, "butler"},
    {"ButlerTaskRefreshEpgGuides", true, Hidden, "butler"},
    {"ButlerTaskReverseGeocode", true, Hidden, "butler"},
    {"GenerateIndexFilesDuringAnalysis", false, Hidden, ""},
    {"ButlerTaskGenerateMediaIndexFiles", false, Hidden, "butler"},
    {"GenerateBIFKeyframesOnly", true, Hidden, "library"},
    {"GenerateBIFBehavior", "never", None, "library"},
    {"GenerateBIFFrameInterval", 2, Hidden, "library"},
    {"GenerateIntroMarkerBehavior", "scheduled", None, "library"},
    {"GenerateChapterThumbBehavior", "scheduled", None, "library"},
    {"LoudnessAnalysisBehavior", "scheduled", None, "library"},
    {"LongRunningJobThreads", 0, Hidden, ""},
    {"LoudnessAnalysisThreads", 0, Hidden, ""},
    {"LoudnessReplayGainStyle", "album", Hidden, ""},
    {"RadioTopTracksPerAlbum", 3, Hidden, ""},
    {"RadioDaysSinceLastPlayed", 1, Hidden, ""},
    {"RadioDirectoryThreshold", 1000, Hidden, ""},
    {"RadioDirectoryLimit", 10, Hidden, ""},
    {"LocationVisibility", 1, Advanced, "library", kLocation},
    {"CertificateVersion", 1, Hidden, ""},
    {"CertificateUUID", "", Private, ""},
    {"LyricFindTerritory", "", Hidden, ""},
    {"AutoTagIndexThreshold", 0.5, Hidden, ""},
    {"AutoTagIndexSearchThreshold", 0.5, Hidden, ""},
    {"MetricsEpoch", 1, Hidden, ""},
    {"PubSubServer", kPubSubServer, Private, ""},
    {"PubSubServerPing", 0, Private, ""},
    {"PubSubServerRegion", "", Private, ""},
    {"allowLocalhostOnly", false, Hidden, ""},
    {"enableLocalSecurity", false, Hidden, ""},
    {"TunerServicePort", port(0)},
    {"UniveralMetadataProviderUrl", kUniversalMetadataUrl, Hidden, ""},
    {"MetadataProviderUrl", kMetadataUrl, Hidden, ""},
    {"EyeQUser", "", Private, ""},
    {"DvrShowUnsupportedDevices", false, Hidden, ""},
    {"DvrComskipRemoveIntermediates", true, Hidden, ""},
    {"DvrComskipKeepOriginal", false, Hidden, ""},
    {"SubtitlesPersistIfAdmin", true, Hidden, ""},
    {"DvrIncrementalEpgLoader", false, Hidden, ""},
    {"EpgUseSelectedProvider", true, Hidden, ""},
    {"MetadataUseDevProvider", false, Hidden, ""},
    {"SyncMPRootDirectoryOverride", "", Hidden, ""},
    {"MediaServerManagerAllowHttp", false, Hidden, ""},
    {"AugmentationProviderEnvironment", "prod", Hidden, ""},
    {"ZarnOnlineEnvironment", "prod", Hidden, ""},
    {"MergedRecentlyAdded", true, Hidden, ""},
    {"EnableDatabaseTrace", false, Hidden, ""},
};
// clang-format on

static_assert(std::size(kRows) == 175, "the settings screen of every client counts on all of them");

/// Where in the table the row of this identifier is; past its end when there is none.
[[nodiscard]] constexpr std::size_t rowOf(std::string_view identifier) noexcept {
  std::size_t index = 0;
  while (index < std::size(kRows) && kRows[index].identifier != identifier) ++index;
  return index;
}

/// Whether the values of `row` are read as a T.
template <typename T>
[[nodiscard]] constexpr bool holds(const Row& row) noexcept {
  const auto& value = row.defaultValue;
  if constexpr (std::is_same_v<T, std::string>) {
    return std::holds_alternative<const char*>(value);
  } else if constexpr (std::is_same_v<T, std::int32_t>) {
    return std::holds_alternative<std::int32_t>(value) || std::holds_alternative<std::uint16_t>(value);
  } else {
    return std::holds_alternative<T>(value);
  }
}

struct Texts {
  std::string_view identifier;
  std::string_view label;
  std::string_view summary;
};

struct Choice {
  std::string_view identifier;
  std::string_view value;
  std::string_view label;
};

/// A text preference of the media server's, known by its texts alone; it has no row.
inline constexpr std::string_view kUpdateChannel = "ButlerUpdateChannel";

/// English texts of the preferences that somebody may see.
[[nodiscard]] std::span<const Texts> texts() noexcept;

/// The choices of enumerated preferences, those of one preference in display order.
[[nodiscard]] std::span<const Choice> choices() noexcept;

}  // namespace catalogue

/// Names a preference whose values are a T: bool, std::string, std::int32_t or double.
/// A name that has no row in the catalogue, or one of another type, does not compile.
template <typename T>
class PreferenceName {
 public:
  consteval explicit PreferenceName(std::string_view id) : id_(id) {
    const std::size_t row = catalogue::rowOf(id);
    if (row == std::size(catalogue::kRows)) throw "the catalogue has no such preference";
    if (!catalogue::holds<T>(catalogue::kRows[row])) throw "the preference is of another type";
  }

  [[nodiscard]] constexpr std::string_view id() const noexcept { return id_; }

 private:
  std::string_view id_;
};

namespace preference {

inline constexpr PreferenceName<bool> kAwayModeSupported("AwayModeSupported");
/// zarn-update looks it up without a store.
inline constexpr PreferenceName<std::string> kLocalAppDataPath(names::kLocalAppDataPathValue.narrow);
inline constexpr PreferenceName<bool> kLogDebug("logDebug");
inline constexpr PreferenceName<bool> kLogMemoryUse("LogMemoryUse");
inline constexpr PreferenceName<std::int32_t> kLogNumFiles("LogNumFiles");
inline constexpr PreferenceName<bool> kLogSynchronous("LogSynchronous");
inline constexpr PreferenceName<bool> kLogTokensForDebug("LogTokensForDebug");
inline constexpr PreferenceName<bool> kLogVerbose("LogVerbose");
inline constexpr PreferenceName<std::string> kTlsKeyLogPath("TLSKeyLogPath");
inline constexpr PreferenceName<std::string> kZarnOnlineToken("ZarnOnlineToken");
inline constexpr PreferenceName<std::string> kZarnOnlineUsername("ZarnOnlineUsername");

}  // namespace preference
}  // namespace zarn
