/** @file
 * Everything korx_basic offers. */
#ifndef KORX_BASIC_H
#define KORX_BASIC_H

#include "korx/cmd.h"
#include "korx/common.h"
#include "korx/container.h"
#include "korx/fs.h"
#include "korx/ini.h"
#include "korx/log.h"
#include "korx/path.h"
#include "korx/plog.h"
#include "korx/sema.h"
#include "korx/str.h"

#endif
