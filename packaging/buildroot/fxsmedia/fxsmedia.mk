################################################################################
#
# fxsmedia
#
################################################################################

FXSMEDIA_VERSION = 0.1.0
FXSMEDIA_SOURCE = fxsmedia-$(FXSMEDIA_VERSION).tar.xz
FXSMEDIA_SITE = $(call qstrip,$(BR2_PACKAGE_FXSMEDIA_SITE))
FXSMEDIA_LICENSE = MIT
FXSMEDIA_LICENSE_FILES = LICENSE
FXSMEDIA_CONF_OPTS = -DFXSMEDIA_SOURCES=$(@D)/sources

# libgsm is linked into the process.
FXSMEDIA_LIBGSM = libgsm_1.0.22.orig.tar.gz
FXSMEDIA_EXTRA_DOWNLOADS = http://deb.debian.org/debian/pool/main/libg/libgsm/$(FXSMEDIA_LIBGSM)

define FXSMEDIA_EXTRACT_LIBGSM
	mkdir -p $(@D)/sources/libgsm
	$(TAR) -xzf $(FXSMEDIA_DL_DIR)/$(FXSMEDIA_LIBGSM) -C $(@D)/sources/libgsm --strip-components=1
endef
FXSMEDIA_POST_EXTRACT_HOOKS += FXSMEDIA_EXTRACT_LIBGSM

define FXSMEDIA_USERS
	fxsmedia -1 fxsmedia -1 * - - - media process of the analogue telephone ports
endef

ifeq ($(BR2_INIT_SYSTEMD),y)
FXSMEDIA_CONF_OPTS += -DFXSMEDIA_SYSTEMD=/usr/lib/systemd/system
endif

define FXSMEDIA_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(FXSMEDIA_PKGDIR)/S80fxsmedia $(TARGET_DIR)/etc/init.d/S80fxsmedia
	$(INSTALL) -D -m 0644 $(@D)/packaging/systemd/fxsmedia.default $(TARGET_DIR)/etc/default/fxsmedia
endef

$(eval $(cmake-package))
