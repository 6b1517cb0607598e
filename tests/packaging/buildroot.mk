# What packaging/buildroot needs of Buildroot's package/pkg-cmake.mk to be built by this machine's compiler.
# Goal: WORK/source/.staged. SOURCE: the unpacked source archive, DL_DIR: libgsm's archive, WORK: a folder to work in, ROOT: the target's root
INSTALL := install
TAR := tar
TARGET_DIR := $(ROOT)
qstrip = $(strip $(subst ",,$(1)))
FXSMEDIA_PKGDIR := $(RECIPE)
FXSMEDIA_DL_DIR := $(DL_DIR)
build := $(WORK)/source

define run-hooks
$(foreach hook,$(1),$($(hook))
)
endef

define cmake-package
$(build)/.staged:
	cp -r $(SOURCE) $(build)
	$$(call run-hooks,$$(FXSMEDIA_POST_EXTRACT_HOOKS))
	cmake -S $(build) -B $(build) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_INSTALL_PREFIX=/usr $$(FXSMEDIA_CONF_OPTS)
	$$(MAKE) -C $(build)
	DESTDIR=$(ROOT) $$(MAKE) -C $(build) install
	$$(FXSMEDIA_INSTALL_INIT_SYSV)
endef
