# bash completion for tavctl
_tavctl() {
    local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]:-}
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W 'event send status location --help --version' -- "$word")
        return
    fi
    case $command in
        event)
            local ids='356 359 360 397 398 434 435 538 539 540 678 680 681 683 708'
            [ "$COMP_CWORD" -eq 2 ] || ids=
            [ "$COMP_CWORD" -ne 3 ] || ids=--location
            mapfile -t COMPREPLY < <(compgen -W "$ids --help" -- "$word") ;;
        send) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        *) mapfile -t COMPREPLY < <(compgen -W '--help' -- "$word") ;;
    esac
}
complete -F _tavctl tavctl
