#pragma once

// All records of the system manager.

#include "bitstream_type.h"
#include "board_model.h"
#include "nmos_parameters.h"
#include "sfp_info.h"
#include "sys_parameters.h"
#include "sys_parameters_dynamic.h"
#include "sysmgr_eth_types.h"
#include "system_info.h"
#include "video_timing.h"
#include "whitelist.h"
