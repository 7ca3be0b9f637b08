#include "http/tls_key_log.h"

#include <cstdio>
#include <memory>
#include <string>

#include "prefs/preferences.h"
#include "util/file_utils.h"
#include "util/quietly.h"

namespace zarn {
namespace {

FileUtils::ScopedFile openKeyLog() {
  const std::string path = Preferences::instance().get(preference::kTlsKeyLogPath);
  if (path.empty()) return nullptr;
  auto file = FileUtils::safeOpen(path, "ab", false, FileUtils::Links::Refuse);
  if (file) static_cast<void>(std::setvbuf(file.get(), nullptr, _IONBF, 0));
  return file;
}

std::FILE* keyLog() {
  static std::FILE* const file = openKeyLog().release();  // open as long as the process lives
  return file;
}

void writeKeyLine(const SSL* /*connection*/, const char* line) {
  // OpenSSL, which called, knows no exceptions.
  quietly([&] {
    // One call, so that lines of several threads stay whole.
    const std::string text = std::string(line) + "\n";
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), keyLog()));  // a help for debugging only
  });
}

}  // namespace

void installTlsKeyLog(SSL_CTX* context) {
  if (keyLog() != nullptr) SSL_CTX_set_keylog_callback(context, writeKeyLine);
}

}  // namespace zarn
