#include <boost/log/attributes/current_thread_id.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/async_frontend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_file_backend.hpp>
#include <boost/log/sources/global_logger_storage.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_logger.hpp>
#include <boost/log/support/date_time.hpp>
#include <boost/log/trivial.hpp>
#include <boost/log/utility/setup/common_attributes.hpp>

#include "log_candidates.h"

namespace zarn::bench {
namespace {

namespace expressions = boost::log::expressions;
namespace keywords = boost::log::keywords;
namespace sinks = boost::log::sinks;
using boost::log::trivial::severity_level;
using ThreadId = boost::log::attributes::current_thread_id::value_type;

template <template <typename> class Frontend>
class BoostLog final : public LogCandidate {
 public:
  explicit BoostLog(const std::string& directory)
      : sink_(boost::make_shared<Sink>(boost::make_shared<sinks::text_file_backend>(
            keywords::file_name = directory + "/bench.log", keywords::auto_flush = true))) {
    sink_->set_formatter(expressions::stream << expressions::format_date_time<boost::posix_time::ptime>(
                                                    "TimeStamp", "%b %d, %Y %H:%M:%S.%f")
                                             << " [" << expressions::attr<ThreadId>("ThreadID") << "] "
                                             << expressions::attr<severity_level>("Severity") << " - "
                                             << expressions::smessage);
    boost::log::add_common_attributes();
    boost::log::core::get()->add_sink(sink_);
  }
  ~BoostLog() override {
    boost::log::core::get()->remove_sink(sink_);
    if constexpr (requires { sink_->stop(); }) sink_->stop();
  }

  void log(const LogMessage& message) override {
    thread_local boost::log::sources::severity_logger<severity_level> logger;
    BOOST_LOG_SEV(logger, severity_level::info)
        << '#' << message.producer << message.number << ' ' << message.text;
  }
  void flush() override { sink_->flush(); }

 private:
  using Sink = Frontend<sinks::text_file_backend>;
  boost::shared_ptr<Sink> sink_;
};

template <typename Backend>
using Async = sinks::asynchronous_sink<Backend>;
template <typename Backend>
using Sync = sinks::synchronous_sink<Backend>;

}  // namespace

std::unique_ptr<LogCandidate> makeBoostLogAsync(const std::string& directory) {
  return std::make_unique<BoostLog<Async>>(directory);
}

std::unique_ptr<LogCandidate> makeBoostLogSync(const std::string& directory) {
  return std::make_unique<BoostLog<Sync>>(directory);
}

}  // namespace zarn::bench
