# bash completion for tavd
_tavd() {
    local word=${COMP_WORDS[COMP_CWORD]}
    local words='--fibre-channel --generic-storage --generic-storage=any --print --metrics-file --check-config --help --version'
    if [ "${COMP_WORDS[COMP_CWORD - 1]}" = --check-config ] || [ "${COMP_WORDS[COMP_CWORD - 1]}" = --metrics-file ]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    fi
}
complete -F _tavd tavd
