# What packaging/openwrt needs of OpenWrt's rules.mk, package.mk and cmake.mk to be built by this machine's compiler.
# Goal: stage. SOURCE: the unpacked source archive, DL_DIR: libgsm's archive, WORK: a folder to work in, ROOT: what is packaged
INSTALL_DIR := install -d -m0755
INSTALL_BIN := install -m0755
INSTALL_CONF := install -m0600
TAR := tar
PKG_BUILD_DIR := $(WORK)/source
PKG_INSTALL_DIR := $(WORK)/installed

define Build/Prepare/Default
	cp -r $(SOURCE) $(PKG_BUILD_DIR)
endef

define BuildPackage
stage:
	$$(call Build/Prepare)
	cmake -S $$(PKG_BUILD_DIR) -B $$(PKG_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_INSTALL_PREFIX=/usr $$(CMAKE_OPTIONS)
	$$(MAKE) -C $$(PKG_BUILD_DIR)
	DESTDIR=$$(PKG_INSTALL_DIR) $$(MAKE) -C $$(PKG_BUILD_DIR) install
	$$(call Package/$(1)/install,$$(ROOT))
endef
