#include <glog/logging.h>

#include "log_candidates.h"

namespace zarn::bench {
namespace {

class Glog final : public LogCandidate {
 public:
  explicit Glog(const std::string& directory) {
    FLAGS_logbuflevel = -1;  // no level is buffered
    google::SetLogDestination(google::GLOG_INFO, (directory + "/bench.log.").c_str());
    google::SetLogSymlink(google::GLOG_INFO, "");
    google::InitGoogleLogging("bench");
  }
  ~Glog() override { google::ShutdownGoogleLogging(); }

  void log(const LogMessage& message) override {
    LOG(INFO) << '#' << message.producer << message.number << ' ' << message.text;
  }
};

}  // namespace

std::unique_ptr<LogCandidate> makeGlog(const std::string& directory) {
  return std::make_unique<Glog>(directory);
}

}  // namespace zarn::bench
