################################################################################
#
# zelsysmgrapi
#
################################################################################

# The tree that this package stands in is given by ZELSYSMGRAPI_OVERRIDE_SRCDIR in local.mk, or as a site of your own.
ZELSYSMGRAPI_VERSION = 1.0.0
ZELSYSMGRAPI_LICENSE = MIT
ZELSYSMGRAPI_LICENSE_FILES = LICENSE
ZELSYSMGRAPI_INSTALL_STAGING = YES
ZELSYSMGRAPI_DEPENDENCIES = host-pkgconf cppzmq jsoncpp simdjson zeromq
ZELSYSMGRAPI_CONF_OPTS = \
	-DBUILD_TESTING=OFF \
	-DCMAKE_SKIP_INSTALL_RPATH=ON \
	-DZEL_BUILD_EXAMPLES=OFF \
	-DZEL_BUILD_SIMULATOR=OFF

ifeq ($(BR2_PACKAGE_ZELSYSMGRAPI_CLI),y)
ZELSYSMGRAPI_CONF_OPTS += -DZEL_BUILD_CLI=ON
else
ZELSYSMGRAPI_CONF_OPTS += -DZEL_BUILD_CLI=OFF
endif

$(eval $(cmake-package))
