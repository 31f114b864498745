#!/bin/bash
# Connections come up as configured, stay as configured, and are left alone when nothing has changed.
. ./lib.sh
security=802-11-wireless-security dev=eth0 static='"method":"manual","address":"10.0.9.77","netmask":"255.255.255.0"'
set_wired() { mark; pub ethernet/config/set "{\"interface\":\"$dev\",$1}"; }
set_wifi() { mark; pub wifi/config/set "{\"interface\":\"wlan0\",\"method\":\"auto\",$1}"; }
set_modem() { mark; pub modem/config/set "{\"interface\":\"ttyUSB0\",\"method\":\"auto\",\"apn\":$1}"; }
addresses() { ip -4 -br address show $dev | tr -s ' ' | cut -d' ' -f3- | sed 's/ *$//'; }
has_only() { same "addresses of $dev" "$1" "$(addresses)"; }
no_static() { same profile "$1" "$(profile Ethernet ipv4.method,ipv4.addresses,ipv4.gateway | xargs)"; }
links() { for d in $dev wlan0 ttyUSB0; do shown $d GENERAL.CON-PATH; done; }
everything_up() { nm_is $dev 100 && on_profile wlan0 "$1" && on_profile ttyUSB0 Broadband; }
untouched() { # untouched TEXT: a fresh start finds nothing to change and drops no link
    local before; stop_service; before=$(links)
    check "$1: a second start" start_service
    check "$1: writes and creates nothing" eval '! service_log | grep -E "Applying new settings|does not exist|activated\."'
    check "$1: drops no link" eval 'settled 8 not sent "(ethernet|wifi|modem)/state .*\"state\": [0-3]," && same paths "$before" "$(links)"'
}
restarts() { # restarts WIFI: what is configured outlives every service
    local wifi=$1 unit
    for unit in mosquitto NetworkManager ModemManager; do
        mark; systemctl restart $unit
        check "$wifi: outlives $unit" eval 'within 150 settled 5 everything_up $wifi && not logged "Applying new settings"'
    done
}

ap start 1; ap start 2; ap start 3
ready 'nm_is ttyUSB0 30 && scanned HomeNet && scanned OpenNet && scanned MixedNet'
start_recorder
check "first start makes the configuration file" eval "start_service && grep -qx apn=internet $conf"
check "wired connection" within 60 eval 'on_profile $dev Ethernet && holds Ethernet ipv4.method auto'
check "modem connection" within 60 eval 'on_profile ttyUSB0 Broadband && holds Broadband gsm.apn internet'
nmcli connection delete "Wired connection 1" >/dev/null # ethernet/config shows the first available profile
set_wifi '"ssid":"HomeNet","key":"secret-home-1"'
check "WPA2" eval 'within 60 on_profile wlan0 HomeNet && within 20 ping -c 1 -W 3 -I wlan0 10.10.1.1'
set_wifi '"ssid":"OpenNet"'
check "open" within 60 on_profile wlan0 OpenNet
untouched "open"
set_wifi '"ssid":"MixedNet","key":"secret-mixed-1"'
check "WPA1 and WPA2" within 60 on_profile wlan0 MixedNet
untouched "WPA1 and WPA2"
restarts MixedNet
set_wired "$static,\"gateway\":\"10.0.9.2\",\"dns0\":\"10.0.9.3\",\"dns1\":\"10.0.9.4\""
check "static" within 60 eval 'has_only 10.0.9.77/24 && ip route show default dev $dev | grep -q "via 10.0.9.2 "'
check "static: documents" eval 'ask ethernet/config $dev && doc_is ethernet/config@$dev address 10.0.9.77 &&
    doc_is ethernet/config@$dev dns1 10.0.9.4 && within 40 right_device ethernet/state $dev'
untouched "static"
restarts MixedNet; check "static: still there" has_only 10.0.9.77/24
set_wired "$static"
check "static without gateway and name servers" within 60 eval 'holds Ethernet ipv4.gateway "" && holds Ethernet ipv4.dns "" && has_only 10.0.9.77/24'
untouched "static without gateway"
set_wired '"method":"auto"'
check "auto: no trace of the static address" within 60 eval 'has_only 10.0.2.15/24 && no_static auto'
set_wired "$static"; within 60 has_only 10.0.9.77/24; set_wired '"method":""'
check "link-local: no trace either" within 60 eval 'addresses | grep -q "^169\.254\.[0-9.]*/16$" && no_static link-local'
untouched "link-local"; set_wired '"method":"auto"'; check "auto again" within 60 eval 'has_only 10.0.2.15/24 && no_static auto'
gsm() { same gsm "$1" "$(profile Broadband gsm.apn,gsm.username,gsm.password,gsm.network-id,gsm.pin | xargs)" && nm_is ttyUSB0 100; }
set_modem '"other.net","username":"u1","password":"p;1","networkId":"00101"'
check "modem: user, password, network" within 90 settled 3 gsm "other.net u1 p;1 00101"
untouched "modem password"
set_modem '"internet"'
check "modem: all but the APN cleared" within 90 settled 3 gsm internet
untouched "modem without password"
set_modem '"internet","pin":"1234"'
check "modem: PIN" within 90 settled 3 gsm "internet 1234"
modem lock; modem unplug; within 60 not nmcli device show ttyUSB0; mark; modem plug
check "modem: locked SIM is opened" within 150 eval 'gsm "internet 1234" && not logged "Applying new settings"'
set_modem '"internet"'
check "modem: PIN cleared" within 90 settled 3 gsm internet
set_wifi '"ssid":"HomeNet","key":"secret-home-1"'; within 60 on_profile wlan0 HomeNet; ap start 1 HomeNet other-key-22
check "key changed at the access point: link lost" within 60 not nm_is wlan0 100
within 60 scanned HomeNet; set_wifi '"ssid":"HomeNet","key":"other-key-22"'
check "new key" within 90 eval 'on_profile wlan0 HomeNet && holds HomeNet $security.psk other-key-22'
set_wifi '"ssid":"HomeNet","key":""'
check "key cleared: no link" within 60 eval 'holds HomeNet $security.psk "" && not nm_is wlan0 100'
within 60 scanned HomeNet; set_wifi '"ssid":"HomeNet","key":"other-key-22"'
check "key back" within 90 on_profile wlan0 HomeNet
nmcli connection delete OpenNet MixedNet >/dev/null; ap stop 1 # NetworkManager would connect to one of them
check "access point gone" within 150 eval 'not nm_is wlan0 100 && not scanned HomeNet'
set_wifi '"ssid":"HomeNet","key":"other-key-22"'
check "gone: not tried" within 20 logged "Configured access point 'HomeNet' not in range."
ap start 1 HomeNet other-key-22
check "access point back: connected" within 150 eval 'on_profile wlan0 HomeNet && right_wifi'
nmcli connection delete HomeNet >/dev/null # wifi/config shows the first available profile
while IFS='|' read -r ssid key; do
    ap start 2 "$ssid" "$key"
    check "'$ssid' is seen" within 60 scanned "$ssid"
    set_wifi "$(printf '"ssid":"%s","key":"%s"' "${ssid//[\\\"]/\\&}" "${key//[\\\"]/\\&}")"
    check "'$ssid' with key '$key'" within 60 on_profile wlan0 "$ssid"
    check "its documents" eval 'ask wifi/config wlan0 && doc_is wifi/config ssid "$ssid" && doc_is wifi/config key "$key" && within 40 right_wifi'
    stop_service; start_service; systemctl restart NetworkManager
    check "outlives restarts" within 150 eval 'settled 5 on_profile wlan0 "$ssid" && ask wifi/config wlan0 && doc_is wifi/config key "$key"'
    nmcli connection delete "$ssid" >/dev/null
done <<'TABLE'
Café Zürich|pässwörd-1
a"b';c\d|k"e'y;1\2#3,4
  100% = %s $HOME  |%n%s %d $(x)
TABLE
check "the profiles are on disk for the next boot" ls /etc/NetworkManager/system-connections/{Ethernet,Broadband}.nmconnection
finish
