// Where the platform puts what the component's processes share.
#pragma once

#include <stdint.h>

namespace korx {

// The base configuration and what stands in it.
inline constexpr char kConfFile[] = "/etc/base.d/base.conf";
inline constexpr char kPathSection[] = "[PATH]";
inline constexpr char kLogPathKey[] = "LOG_PATH";
inline constexpr char kDataPathKey[] = "DATA_PATH";

// The default directories are kBaseDir with these names behind it; the log directory is meant to be
// a link to kLogLinkTarget.
inline constexpr char kBaseDir[] = "/opt/veltra/quarn/common";
inline constexpr char kLogDirName[] = "log";
inline constexpr char kDataDirName[] = "data";
inline constexpr char kLogLinkTarget[] = "/opt/tarnos/var/log";
inline constexpr char kTmpDir[] = "/opt/veltra/quarn/common/tmp";
inline constexpr char kLocalDataFile[] = "korx_local_data.ini";

// Relative to a process's working directory; where it is, the records stay in local files.
inline constexpr char kLocalModeFile[] = "../conf/config/korx_sdk_init.conf";
// There once somebody outside collects the diagnostic records.
inline constexpr char kPoolReadyFile[] = "/dev/shm/korx/PkgPoolReady";

inline constexpr char kAgentLibrary[] = "libimagent.so";
inline constexpr char kAgentReportFunction[] = "IM_Agent_ReportLogById";

}  // namespace korx
