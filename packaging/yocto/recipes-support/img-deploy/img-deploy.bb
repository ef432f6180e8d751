SUMMARY = "Builds and applies update images of a video processing device"
DESCRIPTION = "The update tool, its companions img_info, sysconfig and upgd_service, and the \
libraries with which the device's resident service runs updates."
SECTION = "admin"
# All rights reserved by the maker: a licence is the maker's to choose.
LICENSE = "CLOSED"

inherit cmake pkgconfig bash-completion externalsrc

# This very source tree, and the version that it has.
EXTERNALSRC = "${@os.path.normpath(d.getVar('THISDIR') + '/../../../..')}"
PV = "${@__import__('re').search(r'project\(img_deploy VERSION ([0-9.]+)', open(d.getVar('EXTERNALSRC') + '/CMakeLists.txt').read()).group(1)}"

# Signatures are checked by libsodium, which stands in meta-oe.
PACKAGECONFIG ??= "signatures"
PACKAGECONFIG[signatures] = "-DSIGNATURES=ON,-DSIGNATURES=OFF,libsodium"

EXTRA_OECMAKE = "-DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=Release"

# The commands that an update runs are those of the image's base, BusyBox or others. The flashing
# tools and the device's own tasks come from elsewhere.
RDEPENDS:${PN} = "${VIRTUAL-RUNTIME_base-utils}"

# The libraries are static alone, so that the development package would be empty of them.
RDEPENDS:${PN}-dev += "${PN}-staticdev (= ${EXTENDPKGV})"
FILES:${PN}-doc += "${datadir}/doc"
