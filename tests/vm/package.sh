#!/bin/bash
# The installed package: started by systemd as its own user, used, upgraded, rebooted, purged.
# First boot: everything but the last part. With a disk that is kept, a second boot does that part.
. ./lib.sh
mark() { mark_mqtt=$(wc -l <$run/mqtt.log); mark_time=$(date +%s); cursor=$(journalctl -n 1 --show-cursor -o cat | sed -n 's/^-- cursor: //p'); }
service_log() { journalctl -o cat -t lanvoy --after-cursor "$cursor"; }
state=/var/lib/lanvoy month=$(date +%Y-%m)
pid() { systemctl show -P MainPID lanvoy; }
up() { systemctl is-active -q lanvoy && [ "$(pid)" != "${1:-0}" ]; }              # up [OLD_PID]
new_start() { up "$1" && logged "IPC Connected" && sent info && sent ethernet/state; } # new_start OLD_PID
mode() { same "mode of $2" "$1" "$(stat -c '%U %a' "$2")"; }
ini() { sed -n "/^\[$month\]/,/^\[/s/^$1=//p" $state/stats/modem.ini; }
counter() { cat /sys/class/net/ppp0/statistics/$1_bytes; }
booked() { same received $(($(counter rx) + ${1:-0})) "$(ini rxbytes)" && same sent $(($(counter tx) + ${2:-0})) "$(ini txbytes)"; }
traffic() { ping -q -c 20 -i 0.2 -s 1400 -W 3 10.64.64.1; }
keys() { sed 's/;.*//' "$1" | grep . | grep -v '^dns1=' | awk '/^\[/ { g = $0; next } { print g $0 }' | sort; }
deb() { dpkg --path-include='/usr/share/doc/lanvoy/*' "$@"; }
set_wifi() { mark; pub wifi/config/set "{\"interface\":\"wlan0\",\"method\":\"auto\",$1}"; }
mark
if [ ! -e $state ]; then # the first boot
    ap start 1; ap start 2
    check "hardware" within 150 eval 'nm_is ttyUSB0 30 && scanned HomeNet && scanned OpenNet'
    systemctl stop mosquitto ModemManager; systemctl mask --now --runtime NetworkManager
    check "install" deb -i ./lanvoy_*.deb
    check "starts without broker, NetworkManager and ModemManager" within 60 eval 'up && logged "Config file not found"'
    check "and stays" settled 8 up
    check "as its own user" same user lanvoy "$(ps -o user= "$(pid)")"
    check "configuration and directories are its own" eval "mode 'lanvoy 600' $state/lanvoy.conf && mode 'lanvoy 750' $state &&
        mode 'lanvoy 750' $state/stats && mode 'lanvoy 700' /run/lanvoy"
    check "the sample is what a first start writes" diff <(keys $state/lanvoy.conf) <(keys /usr/share/doc/lanvoy/examples/lanvoy.conf)
    systemctl start mosquitto; start_recorder
    systemctl unmask --runtime NetworkManager 2>/dev/null; systemctl start NetworkManager ModemManager
    check "the services come: documents" within 90 eval 'sent info && sent status && sent ethernet/state && sent modem/state'

    check "rights: wired connection" within 60 eval 'on_profile eth0 Ethernet || on_profile eth1 Ethernet'
    check "rights: modem connection" within 120 on_profile ttyUSB0 Broadband
    check "rights: scan" within 90 eval 'sent wifi/aps && ! service_log | grep -i "scan.*\(fail\|error\|not auth\)"'
    set_wifi '"ssid":"HomeNet","key":"secret-home-1"'
    check "rights: new wifi connection" within 90 on_profile wlan0 HomeNet
    check "secrets are read" eval 'ask wifi/config wlan0 && doc_is wifi/config key secret-home-1'
    check "the file is saved, readable by nobody else" eval "grep -qx ssid=HomeNet $state/lanvoy.conf && mode 'lanvoy 600' $state/lanvoy.conf"

    mark; old=$(pid); systemctl stop lanvoy; sed -i s/^usageSec=.*/usageSec=2/ $state/lanvoy.conf; systemctl start lanvoy
    check "usage is booked" eval 'within 90 logged "Started monitoring Data usage" && traffic && within 30 booked'
    mark; old=$(pid); systemctl restart lanvoy
    check "restart: booked once" eval 'within 60 new_start $old && within 60 settled 5 booked'
    systemctl stop lanvoy; traffic >/dev/null; mark; systemctl start lanvoy
    check "stop, traffic, start: booked once" within 60 settled 5 booked
    check "the snapshot is not in the common /tmp" eval '[ -e /run/lanvoy/modem-snapshot.ini ] && [ ! -e /tmp/modem-snapshot.ini ]'

    # A bus that was killed comes back with its next client; on most systems that is logind.
    for how in "systemctl restart dbus" "kill -KILL \$(systemctl show -P MainPID dbus); sleep 3; busctl >/dev/null"; do
        mark; old=$(pid); eval "$how"
        check "$how: a new process" within 60 up $old
        check "$how: everything as before" within 180 eval "new_start $old && on_profile ttyUSB0 Broadband && nm_is eth0 100 && on_profile wlan0 HomeNet"
    done
    mark; old=$(pid); kill -SEGV $old
    check "crash: restarted" within 60 new_start $old
    for unit in NetworkManager ModemManager mosquitto; do
        mark; old=$(pid); systemctl restart $unit
        check "$unit restarted: the same process goes on" eval 'within 180 eval "on_profile ttyUSB0 Broadband && on_profile wlan0 HomeNet" && [ $(pid) = $old ]'
    done

    old=$(pid); mv /usr/share/polkit-1/rules.d/lanvoy.rules /root/; sleep 5
    set_wifi '"ssid":"OpenNet"'
    check "rule removed: refusals are logged" within 60 eval 'service_log | grep -i "fail\|error\|not auth\|insufficient\|denied"'
    check "rule removed: not connected, not crashed" eval 'not on_profile wlan0 OpenNet && [ $(pid) = $old ]'
    service_log | grep -iv '\[Config\]' | tail -n 6 | sed 's/^/     /'
    mv /root/lanvoy.rules /usr/share/polkit-1/rules.d/; sleep 5
    set_wifi '"ssid":"OpenNet"'
    check "rule back: connected" within 90 on_profile wlan0 OpenNet

    dpkg-deb -R ./lanvoy_*.deb /root/next && sed -i 's/^Version: .*/&+next/' /root/next/DEBIAN/control && dpkg-deb -b /root/next /root/next.deb >/dev/null
    cp $state/lanvoy.conf /root/before; mark; old=$(pid)
    check "upgrade" deb -i /root/next.deb
    check "upgrade: restarted, configuration kept" eval 'within 60 new_start $old && cmp /root/before $state/lanvoy.conf'
    check "upgrade: usage still booked once" within 60 settled 5 booked

    traffic >/dev/null; within 20 booked; cp $state/stats/modem.ini $state/lanvoy.conf /root/; sync # the power goes
else # the second boot
    start_recorder
    before=$(sed -n 's/^rxbytes=//p' /root/modem.ini) before_tx=$(sed -n 's/^txbytes=//p' /root/modem.ini)
    check "reboot: started by itself" within 60 up
    check "reboot: configuration kept" cmp /root/lanvoy.conf $state/lanvoy.conf
    check "reboot: usage goes on from where it was" eval 'within 180 on_profile ttyUSB0 Broadband && traffic && within 40 settled 5 booked $before $before_tx'
    echo "# received: $before before, $(ini rxbytes) now, the interface says $(counter rx)"

    cp /usr/share/doc/lanvoy/examples/mosquitto/lanvoy.* /etc/mosquitto/; rm /etc/mosquitto/conf.d/*; mv /etc/mosquitto/lanvoy.conf /etc/mosquitto/conf.d/
    mosquitto_passwd -U /etc/mosquitto/lanvoy.passwd; chown mosquitto: /etc/mosquitto/lanvoy.*; chmod 600 /etc/mosquitto/lanvoy.*
    systemctl stop lanvoy; sed -i 's/^user=/&lanvoy/; s/^pass=/&change-me-1/' $state/lanvoy.conf
    mark; systemctl restart mosquitto; systemctl start lanvoy
    as() { mosquitto_sub -u "$1" -P "$2" -W 15 -t "$base/$3" -C 1; }
    tell() { mosquitto_pub -u "$1" -P "$2" -q 1 -t $base/ethernet/config/set -m '{"interface":"eth7"}'; }
    check "access list: the service is let in" within 60 logged "IPC Connected"
    check "access list: the operator reads the configuration" within 60 eval 'as operator change-me-3 ethernet/config | grep -q method'
    mark; tell operator change-me-3
    check "access list: and commands" within 20 logged "ethernet/config/set"
    check "access list: the viewer reads states, no configuration" eval 'as viewer change-me-2 ethernet/state && ! as viewer change-me-2 "+/config"'
    mark; tell viewer change-me-2
    check "access list: nor commands" settled 5 not logged "ethernet/config/set"
    check "access list: nobody without a password" not mosquitto_sub -W 8 -t "$base/info" -C 1

    old=$(pid)
    check "removed: stopped, configuration and usage kept" eval 'dpkg -r lanvoy && [ ! -e /proc/$old ] && [ -e $state/lanvoy.conf ] && [ -e $state/stats/modem.ini ]'
    check "purged: nothing left" eval 'dpkg -P lanvoy && ! find /etc /var/lib /run /usr /lib -xdev -name "*lanvoy*" -not -path "/var/lib/dpkg/*" | grep . &&
        ! systemctl is-enabled lanvoy 2>/dev/null'
fi
[ -d /out ] && journalctl -o short-monotonic >/out/journal.log
echo "$fails failed, $(cut -d. -f1 /proc/uptime) s since the kernel started"
exit $((fails > 0))
