#include "prefs/catalogue.h"

#include <algorithm>
#include <string_view>

namespace zarn::catalogue {
namespace {

// Preferences that no screen shows have no entry, and an empty summary says that the label
// tells everything.
// clang-format off
constexpr Texts kTexts[] = {
    {"FriendlyName", "Friendly name", "The name that other devices show for this server. Empty stands for the computer's name."},
    {"sendCrashReports", "Send crash reports", "A report is sent to the developers when the server crashes."},
    {"FSEventLibraryUpdatesEnabled", "Scan my library automatically",
     "Your library will be updated automatically when changes to library folders are detected."},
    {"FSEventLibraryPartialScanEnabled", "Run a partial scan when changes are detected",
     "Only the folder that holds the change is scanned."},
    {"ScheduledLibraryUpdatesEnabled", "Scan my library periodically", ""},
    {"ScheduledLibraryUpdateInterval", "Library scan interval", "Seconds between two periodic scans."},
    {"autoEmptyTrash", "Empty trash automatically after every scan", ""},
    {"allowMediaDeletion", "Allow media deletion", "The owner of the server may delete media files."},
    {"OnDeckWindow", "Weeks to consider for what to watch next", ""},
    {"OnDeckLimit", "Maximum number of items to watch next", ""},
    {"OnDeckIncludePremieres", "Include season premieres in what to watch next", ""},
    {"MusicSeparateAlbumTypes", "Group albums by type", "Singles, live recordings and compilations are shown apart from albums."},
    {"CinemaTrailersType", "Choose trailers from", ""},
    {"CinemaTrailersFromLibrary", "Include trailers of films in my library", ""},
    {"CinemaTrailersFromTheater", "Include trailers of new films in theaters", ""},
    {"CinemaTrailersFromBluRay", "Include trailers of new films on disc", ""},
    {"CinemaTrailersPrerollID", "Video to play before the film", "Path of a video file."},
    {"AwayModeSupported", "Computer supports away mode", "While the server is busy the computer appears off and keeps working."},
    {"EnableIPv6", "Enable server support for IPv6", ""},
    {"secureConnections", "Secure connections", "Whether clients must use encrypted connections."},
    {"customCertificatePath", "Custom certificate location", "Path of a PKCS #12 file with a certificate and its private key."},
    {"customCertificateKey", "Custom certificate encryption key", ""},
    {"customCertificateDomain", "Custom certificate domain", "Domain name to publish, which must match the certificate."},
    {"PreferredNetworkInterface", "Preferred network interface", ""},
    {"DisableTLSv1_0", "Refuse TLS 1.0", ""},
    {"GdmEnabled", "Enable local network discovery", ""},
    {"PushNotificationsEnabled", "Push notifications", ""},
    {"TranscoderQuality", "Transcoder quality", "Quality of the conversion against the load it causes."},
    {"TranscoderTempDirectory", "Transcoder temporary directory", "Directory for files that are being converted for streaming."},
    {"TranscoderThrottleBuffer", "Transcoder default throttle buffer", "Seconds to convert ahead before the conversion is slowed down."},
    {"TranscoderH264BackgroundPreset", "Background transcoding preset", ""},
    {"TranscoderLogLevel", "Transcoder log level", ""},
    {"TranscoderToneMapping", "Enable HDR tone mapping", ""},
    {"TranscoderCanOnlyRemuxVideo", "Disable video stream transcoding", ""},
    {"HardwareAcceleratedCodecs", "Use hardware acceleration when available", ""},
    {"HardwareAcceleratedEncoders", "Use hardware-accelerated video encoding", ""},
    {"HardwareDevicePath", "Hardware transcoding device", ""},
    {"BackgroundTranscodeLowPriority", "Run background transcoding at lower priority", ""},
    {"ScannerLowPriority", "Run scanner tasks at a lower priority", ""},
    {"WanPerStreamMaxUploadRate", "Limit remote stream bit rate", "In kbit/s; 0 is no limit."},
    {"WanTotalMaxUploadRate", "Internet upload speed", "In kbit/s; 0 is not known."},
    {"WanPerUserStreamCount", "Remote streams allowed per user", "0 is no limit."},
    {"LanNetworksBandwidth", "Local networks", "Comma-separated addresses or networks that count as local."},
    {"MinutesAllowedPaused", "Terminate sessions paused for longer than", "In minutes; 0 never ends a paused session."},
    {"TreatWanIpAsLocal", "Treat the public address as local", ""},
    {"RelayEnabled", "Enable relay", "Connections go through a relay when the server cannot be reached directly."},
    {"TranscodeCountLimit", "Maximum simultaneous video transcodes", "0 is no limit."},
    {"logDebug", "Enable debug logging", ""},
    {"LogVerbose", "Enable verbose logging", "Logs can grow quickly."},
    {"customConnections", "Custom server access URLs", "Comma-separated URLs at which clients may find this server."},
    {"allowedNetworks", "Networks allowed without sign-in", "Comma-separated addresses or networks."},
    {"WebHooksEnabled", "Web hooks", ""},
    {"ButlerStartHour", "Time at which tasks start to run", "Hour of the day."},
    {"ButlerEndHour", "Time at which tasks stop running", "Hour of the day."},
    {"ButlerTaskBackupDatabase", "Back up the database regularly", ""},
    {"ButlerDatabaseBackupPath", "Backup directory", "Directory that the database is backed up to."},
    {"ButlerTaskOptimizeDatabase", "Optimize the database regularly", ""},
    {"ButlerTaskCleanOldBundles", "Remove old bundles regularly", ""},
    {"ButlerTaskCleanOldCacheFiles", "Remove old cache files regularly", ""},
    {"ButlerTaskRefreshLocalMedia", "Refresh local metadata regularly", ""},
    {"ButlerTaskRefreshLibraries", "Update all libraries during maintenance", ""},
    {"ButlerTaskUpgradeMediaAnalysis", "Upgrade media analysis during maintenance", ""},
    {"ButlerTaskRefreshPeriodicMetadata", "Refresh metadata periodically", ""},
    {"ButlerTaskDeepMediaAnalysis", "Perform extensive media analysis during maintenance", ""},
    {"ButlerUpdateChannel", "Server update Channel", ""},
    {"GenerateBIFBehavior", "Generate video preview thumbnails", ""},
    {"GenerateIntroMarkerBehavior", "Detect intros", ""},
    {"GenerateChapterThumbBehavior", "Generate chapter thumbnails", ""},
    {"LoudnessAnalysisBehavior", "Analyze audio tracks for loudness", ""},
    {"LocationVisibility", "Location visibility", "Whether photos show where they were taken."},
    {"AugmentationProviderEnvironment", "Augmentation provider environment", ""},
};

// A value is the text that is stored, whatever the type of its preference.
constexpr Choice kChoices[] = {
    {"MusicSeparateAlbumTypes", "enabled", "Enabled"},
    {"MusicSeparateAlbumTypes", "disabled", "Disabled"},
    {"CinemaTrailersType", "0", "All films"},
    {"CinemaTrailersType", "1", "Unwatched films"},
    {"secureConnections", "0", "Required"},
    {"secureConnections", "1", "Preferred"},
    {"secureConnections", "2", "Disabled"},
    {"TranscoderQuality", "0", "Automatic"},
    {"TranscoderQuality", "1", "Faster conversion"},
    {"TranscoderQuality", "2", "Better quality"},
    {"TranscoderQuality", "3", "Best quality, highest load"},
    {"TranscoderLogLevel", "quiet", "Quiet"},
    {"TranscoderLogLevel", "panic", "Panic"},
    {"TranscoderLogLevel", "fatal", "Fatal"},
    {"TranscoderLogLevel", "error", "Error"},
    {"TranscoderLogLevel", "warning", "Warning"},
    {"TranscoderLogLevel", "info", "Info"},
    {"TranscoderLogLevel", "verbose", "Verbose"},
    {"TranscoderLogLevel", "debug", "Debug"},
    {"GenerateBIFBehavior", "never", "Never"},
    {"GenerateBIFBehavior", "scheduled", "As a scheduled task"},
    {"GenerateBIFBehavior", "always", "As a scheduled task and when media is added"},
    {"GenerateIntroMarkerBehavior", "never", "Never"},
    {"GenerateIntroMarkerBehavior", "scheduled", "As a scheduled task"},
    {"GenerateIntroMarkerBehavior", "always", "As a scheduled task and when media is added"},
    {"GenerateChapterThumbBehavior", "never", "Never"},
    {"GenerateChapterThumbBehavior", "scheduled", "As a scheduled task"},
    {"GenerateChapterThumbBehavior", "always", "As a scheduled task and when media is added"},
    {"LoudnessAnalysisBehavior", "never", "Never"},
    {"LoudnessAnalysisBehavior", "scheduled", "As a scheduled task"},
    {"LoudnessAnalysisBehavior", "always", "As a scheduled task and when media is added"},
    {"LocationVisibility", "0", "Nobody"},
    {"LocationVisibility", "1", "Everyone"},
    {"AugmentationProviderEnvironment", "prod", "Production"},
    {"AugmentationProviderEnvironment", "staging", "Staging"},
    {"AugmentationProviderEnvironment", "dev", "Dev"},
};
// clang-format on

constexpr bool isKnown(std::string_view identifier) {
  return identifier == kUpdateChannel || rowOf(identifier) < std::size(kRows);
}

constexpr bool isEveryRowFound() {
  std::size_t row = 0;
  while (row < std::size(kRows) && rowOf(kRows[row].identifier) == row) ++row;
  return row == std::size(kRows);
}

// Nobody would be shown a text under a misspelt identifier, and of two rows with the same
// identifier only the last could be looked up.
static_assert(std::ranges::all_of(kTexts, isKnown, &Texts::identifier));
static_assert(std::ranges::all_of(kChoices, isKnown, &Choice::identifier));
static_assert(isEveryRowFound());

}  // namespace

std::span<const Texts> texts() noexcept {
  return kTexts;
}

std::span<const Choice> choices() noexcept {
  return kChoices;
}

}  // namespace zarn::catalogue
