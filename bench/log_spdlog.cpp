#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "log_candidates.h"

namespace zarn::bench {
namespace {

class SpdlogAsync final : public LogCandidate {
 public:
  explicit SpdlogAsync(const std::string& directory)
      : logger_(spdlog::create_async<spdlog::sinks::basic_file_sink_mt>("bench", directory + "/bench.log")) {
    logger_->set_pattern("%b %d, %Y %H:%M:%S.%e [%t] %l - %v");
    logger_->flush_on(spdlog::level::trace);
  }
  ~SpdlogAsync() override { drain(); }

  void log(const LogMessage& message) override {
    logger_->info("#{}{} {}", message.producer, message.number, message.text);
  }
  void flush() override { drain(); }

 private:
  /// spdlog's own flush only queues a request; ending its thread pool waits.
  void drain() {
    logger_.reset();
    spdlog::shutdown();
  }

  std::shared_ptr<spdlog::logger> logger_;
};

}  // namespace

std::unique_ptr<LogCandidate> makeSpdlogAsync(const std::string& directory) {
  return std::make_unique<SpdlogAsync>(directory);
}

}  // namespace zarn::bench
