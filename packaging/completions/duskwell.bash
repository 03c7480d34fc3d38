# bash completion for duskwell                                   -*- shell-script -*-
_duskwell() {
    local cur prev words cword
    _init_completion || return

    local commands="agents connect disconnect extend phone sleep start status stop toggle"
    if [[ $cword -eq 1 ]]; then
        COMPREPLY=($(compgen -W "$commands --help --version" -- "$cur"))
        return
    fi
    case ${words[1]} in
    start)
        case $prev in
        --mode) COMPREPLY=($(compgen -W "auto timer until" -- "$cur")); return ;;
        --minutes) return ;;
        esac
        COMPREPLY=($(compgen -W "--mode --minutes --help" -- "$cur"))
        ;;
    status | agents | phone)
        COMPREPLY=($(compgen -W "--json --help" -- "$cur"))
        ;;
    connect | disconnect)
        [[ $cword -eq 2 ]] && COMPREPLY=($(compgen -W "claude codex --help" -- "$cur"))
        ;;
    extend)
        [[ $cword -eq 2 ]] && COMPREPLY=($(compgen -W "15 30 60 120 --help" -- "$cur"))
        ;;
    *)
        [[ $cword -eq 2 ]] && COMPREPLY=($(compgen -W "--help" -- "$cur"))
        ;;
    esac
} &&
    complete -F _duskwell duskwell
