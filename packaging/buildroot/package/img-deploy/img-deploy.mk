################################################################################
#
# img-deploy
#
################################################################################

IMG_DEPLOY_SITE = $(realpath $(BR2_EXTERNAL_IMG_DEPLOY_PATH)/../..)
IMG_DEPLOY_SITE_METHOD = local
# This very source tree, and the version that it has
IMG_DEPLOY_VERSION = $(shell sed -n 's/.*img_deploy VERSION \([0-9.]*\).*/\1/p' \
	$(IMG_DEPLOY_SITE)/CMakeLists.txt)
# All rights reserved by the maker: a licence is the maker's to choose
IMG_DEPLOY_LICENSE = PROPRIETARY
IMG_DEPLOY_REDISTRIBUTE = NO
# For services that are built on the libraries
IMG_DEPLOY_INSTALL_STAGING = YES
IMG_DEPLOY_SUPPORTS_IN_SOURCE_BUILD = NO
IMG_DEPLOY_DEPENDENCIES = libsodium
IMG_DEPLOY_CONF_OPTS = -DBUILD_TESTING=OFF -DSIGNATURES=ON

$(eval $(cmake-package))
