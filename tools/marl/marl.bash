# Completion of marl for bash; "marl completion bash" prints it.
_marl() {
    local current=${COMP_WORDS[COMP_CWORD]} given=() word words files=
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word == -* ]] || given+=("$word")
    done
    case "${given[*]:0:2}" in
    "")
        words="id env gpio expander cmos net flash modem mcu watchdog upgrade restart-kind reboot stats completion "
        ;;
    env)
        words="list get set unset "
        ;;
    gpio)
        words="get set pulse watch "
        ;;
    expander)
        words="get set "
        ;;
    cmos)
        words="read write "
        ;;
    net)
        words="show set dns mac host arp "
        ;;
    flash)
        words="map read write verify erase "
        ;;
    modem)
        words="list power reset "
        ;;
    mcu)
        words="status power "
        ;;
    watchdog)
        words="arm feed "
        ;;
    upgrade)
        words="begin end status "
        ;;
    "id"*)
        words=""
        ;;
    "env list")
        words=""
        ;;
    "env get")
        words=""
        ;;
    "env set")
        words=""
        ;;
    "env unset")
        words=""
        ;;
    "gpio get")
        words=""
        ;;
    "gpio set")
        words=" 0 1"
        ;;
    "gpio pulse")
        words=" --level 0 1 --for"
        ;;
    "gpio watch")
        words=" --every --for"
        ;;
    "expander get")
        words=""
        ;;
    "expander set")
        words=" 0 1"
        ;;
    "cmos read")
        words=""
        ;;
    "cmos write")
        words=""
        ;;
    "net show")
        words=" eth0 eth2 ppp0"
        ;;
    "net set")
        words=" --interface eth0 eth2 ppp0"
        ;;
    "net dns")
        words=""
        ;;
    "net mac")
        words=" --interface eth0 eth2 ppp0"
        ;;
    "net host")
        words=""
        ;;
    "net arp")
        words=" eth0 eth2 ppp0"
        ;;
    "flash map")
        words=""
        ;;
    "flash read")
        words=" --offset --length"
        files=yes
        ;;
    "flash write")
        words=" --offset"
        files=yes
        ;;
    "flash verify")
        words=" --offset"
        files=yes
        ;;
    "flash erase")
        words=" --offset --length"
        ;;
    "modem list")
        words=""
        ;;
    "modem power")
        words=" on off"
        ;;
    "modem reset")
        words=" --wait"
        ;;
    "mcu status")
        words=" 18 21 23 24 25"
        ;;
    "mcu power")
        words=" 18 21 23 24 25 on off"
        ;;
    "watchdog arm")
        words=""
        ;;
    "watchdog feed")
        words=""
        ;;
    "upgrade begin")
        words=""
        ;;
    "upgrade end")
        words=""
        ;;
    "upgrade status")
        words=""
        ;;
    "restart-kind"*)
        words=""
        ;;
    "reboot"*)
        words=" --when-idle"
        ;;
    "stats"*)
        words=" --over"
        ;;
    "completion"*)
        words=" bash man"
        ;;
    esac
    words+=" --json --quiet --yes --help --version"
    mapfile -t COMPREPLY < <(compgen ${files:+-f} -W "$words" -- "$current")
}
complete -o filenames -F _marl marl
