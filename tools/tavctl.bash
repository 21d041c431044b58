# bash completion for tavctl
_tavctl() {
    local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]:-} words=--help
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W 'event send status show capture location --help --version' -- "$word")
        return
    fi
    case $command in
        event)
            [ "${COMP_WORDS[COMP_CWORD - 1]}" != --location ] || return
            words='356 359 360 397 398 434 435 538 539 540 678 680 681 683 708 --location --help' ;;
        capture)
            words='--keep-identities --yes --help'
            mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        show)
            words='host storage drives volumes ethernet fibre-channel events service --json --watch --help' ;;
        send)
            mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    esac
    mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -W "$words" -- "$word")
}
complete -F _tavctl tavctl
