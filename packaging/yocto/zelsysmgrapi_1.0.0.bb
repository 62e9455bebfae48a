SUMMARY = "Client library of the board's system manager"
DESCRIPTION = "libzelSysMgrApi sends commands to the daemon that owns the board's configuration, receives its \
notifications and keeps one cached view of it all; libzelCommonTypes holds what the libraries of the board share."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=a08ad07d37f80f8b59fc940ab277977b"

# The tree that this recipe stands in: say externalsrc's EXTERNALSRC, or a SRC_URI of your own mirror with its SRCREV.
inherit cmake pkgconfig
S = "${WORKDIR}/git"

DEPENDS = "cppzmq jsoncpp simdjson zeromq"

EXTRA_OECMAKE = " \
    -DBUILD_TESTING=OFF \
    -DCMAKE_SKIP_INSTALL_RPATH=ON \
    -DZEL_BUILD_EXAMPLES=OFF \
    -DZEL_BUILD_SIMULATOR=OFF \
"

PACKAGECONFIG ??= "cli"
PACKAGECONFIG[cli] = "-DZEL_BUILD_CLI=ON,-DZEL_BUILD_CLI=OFF"

PACKAGES =+ "libzelcommontypes sysmgr-tools"
FILES:libzelcommontypes = "${libdir}/libzelCommonTypes.so.*"
FILES:sysmgr-tools = " \
    ${bindir}/sysmgrctl \
    ${datadir}/bash-completion \
    ${datadir}/fish \
    ${datadir}/zsh \
"
# A tools package may be empty where the command line is not wanted.
ALLOW_EMPTY:sysmgr-tools = "1"
