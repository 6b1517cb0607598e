# What packaging/openwrt's init script needs of OpenWrt's rc.common, of /etc/config and of procd: prints what procd is told.
# usage: procd.sh INIT-SCRIPT ROOT
config_load() { :; }
config_get() { eval "$1=\$(sed -n \"s/^\toption $3 '\(.*\)'/\1/p\" '$root/etc/config/fxsmedia')"; }
procd_running() { true; }
procd_open_instance() { :; }
procd_set_param() { echo "$@"; }
procd_close_instance() { :; }
root=$2
. "$1"
start_service
