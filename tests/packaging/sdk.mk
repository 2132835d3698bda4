# The few rules of the router's build system that the packages' Makefiles use, for a test: `include` of each of its files
# leads here. TOPDIR is a directory of links to this file.
ifndef SDK_IS_IN
SDK_IS_IN:=1
INCLUDE_DIR:=$(TOPDIR)/include
INSTALL_DIR:=install -d -m0755
INSTALL_BIN:=install -m0755
INSTALL_CONF:=install -m0600
INSTALL_DATA:=install -m0644
CP:=cp -fpR
qstrip=$(strip $(subst ",,$(1)))

define BuildPackage
prepare:
	$$(call Build/Prepare)
configure: prepare
	cmake -S $$(PKG_BUILD_DIR) -B $$(PKG_BUILD_DIR)/build -G Ninja -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib \
		$$(CMAKE_OPTIONS)
compile: configure
	cmake --build $$(PKG_BUILD_DIR)/build
	DESTDIR=$$(PKG_INSTALL_DIR) cmake --install $$(PKG_BUILD_DIR)/build
pack:
	$$(call Package/$(1)/install,$$(OUT))
show:
	@$$(foreach name,DEPENDS USERID TITLE,echo '$$(name)=$$($$(name))';)
	@echo 'conffiles=$$(strip $$(Package/$(1)/conffiles))'
provides:
	@true; $$(Package/$(1)/extra_provides)
$$(eval $$(Package/$(1)))
endef
endif
