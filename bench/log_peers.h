// How other programs log a line into a file so that it survives them.
#pragma once

#include <string>

#include "contest.h"

namespace bench {

Operation Log4cplusLines(const std::string& path);  // as many processes share the file as like
Operation SpdlogLines(const std::string& path);
Operation GlogLines(const std::string& path);
Operation BoostLines(const std::string& path);

}  // namespace bench
