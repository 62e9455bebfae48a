################################################################################
#
# simdjson
#
################################################################################

SIMDJSON_VERSION = 3.0.1
SIMDJSON_SITE = $(call github,simdjson,simdjson,v$(SIMDJSON_VERSION))
SIMDJSON_LICENSE = Apache-2.0
SIMDJSON_LICENSE_FILES = LICENSE
SIMDJSON_INSTALL_STAGING = YES
SIMDJSON_CONF_OPTS = -DSIMDJSON_DEVELOPER_MODE=OFF

$(eval $(cmake-package))
