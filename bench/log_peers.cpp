#include "log_peers.h"

#include <glog/logging.h>
#include <log4cplus/configurator.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <boost/log/core.hpp>
#include <boost/log/sources/logger.hpp>
#include <boost/log/trivial.hpp>
#include <boost/log/utility/setup/common_attributes.hpp>
#include <boost/log/utility/setup/file.hpp>

namespace bench {
namespace {

const std::string kText(60, 'm');

}  // namespace

Operation Log4cplusLines(const std::string& path) {
    static log4cplus::Initializer initializer;
    log4cplus::helpers::Properties properties;
    properties.setProperty("File", path);
    properties.setProperty("Append", "true");
    properties.setProperty("ImmediateFlush", "true");
    properties.setProperty("UseLockFile", "true");
    properties.setProperty("LockFile", path + ".lock");
    log4cplus::SharedAppenderPtr appender(new log4cplus::FileAppender(properties));
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>(
        "[%D{%Y-%m-%d %H:%M:%S.%q}][%-5p][L:0][%i] %m%n"));
    auto logger = log4cplus::Logger::getInstance("bench");
    logger.addAppender(appender);
    return [=] { LOG4CPLUS_INFO(logger, kText); };
}

Operation SpdlogLines(const std::string& path) {
    auto logger = spdlog::basic_logger_st("bench", path);
    logger->set_pattern("[%Y-%m-%d %H:%M:%S.%f][%l][%P] %v");
    logger->flush_on(spdlog::level::trace);
    return [=] { logger->info("{}", kText); };
}

Operation GlogLines(const std::string& path) {
    FLAGS_logtostderr = false;
    FLAGS_logbuflevel = -1;  // flush at every level
    FLAGS_timestamp_in_logfile_name = false;
    google::SetLogDestination(google::INFO, path.c_str());
    google::SetLogSymlink(google::INFO, "");
    google::InitGoogleLogging("bench");
    return [] { LOG(INFO) << kText; };
}

Operation BoostLines(const std::string& path) {
    namespace log = boost::log;
    log::add_file_log(log::keywords::file_name = path, log::keywords::auto_flush = true,
                      log::keywords::format = "[%TimeStamp%][%ProcessID%] %Message%");
    log::add_common_attributes();
    auto logger = std::make_shared<log::sources::logger>();
    return [=] { BOOST_LOG(*logger) << kText; };
}

}  // namespace bench
