# bash completion for duskwell                                   -*- shell-script -*-
_duskwell() {
    local cur prev words cword
    _init_completion || return

    local commands="agents config connect dashboard disconnect extend helper phone sleep start status stop toggle"
    local keys="mode timer-minutes auto-cap-hours battery-floor stop-on-heat lock-on-lid-close max-performance launch-at-login phone.enabled phone.server"
    if [[ $cword -eq 1 ]]; then
        COMPREPLY=($(compgen -W "$commands --help --version" -- "$cur"))
        return
    fi
    case ${words[1]} in
    start)
        case $prev in
        --mode) COMPREPLY=($(compgen -W "auto timer until" -- "$cur")); return ;;
        --minutes | --at) return ;;
        esac
        COMPREPLY=($(compgen -W "--mode --minutes --at --json --help" -- "$cur"))
        ;;
    status | agents | stop | toggle | sleep)
        COMPREPLY=($(compgen -W "--json --help" -- "$cur"))
        ;;
    config)
        if [[ $cword -eq 2 ]]; then
            COMPREPLY=($(compgen -W "get set --help" -- "$cur"))
        elif [[ $cword -eq 3 ]]; then
            COMPREPLY=($(compgen -W "$keys --json" -- "$cur"))
        elif [[ $cword -eq 4 && ${words[2]} == set ]]; then
            case $prev in
            mode) COMPREPLY=($(compgen -W "auto timer until" -- "$cur")) ;;
            battery-floor) COMPREPLY=($(compgen -W "0 5 10 15 20 30" -- "$cur")) ;;
            stop-on-heat | lock-on-lid-close | max-performance | launch-at-login | phone.enabled)
                COMPREPLY=($(compgen -W "on off" -- "$cur")) ;;
            esac
        else
            COMPREPLY=($(compgen -W "--json" -- "$cur"))
        fi
        ;;
    phone)
        [[ $prev == --server || $prev == --token ]] && return
        COMPREPLY=($(compgen -W "on off test --json --server --public-server --token --no-token --help" -- "$cur"))
        ;;
    helper)
        [[ $cword -eq 2 ]] && COMPREPLY=($(compgen -W "install remove --help" -- "$cur"))
        ;;
    connect | disconnect)
        [[ $cword -eq 2 ]] && COMPREPLY=($(compgen -W "claude codex gemini opencode --help" -- "$cur"))
        ;;
    extend)
        [[ $cword -eq 2 ]] && COMPREPLY=($(compgen -W "15 30 60 120 --json --help" -- "$cur"))
        ;;
    *)
        [[ $cword -eq 2 ]] && COMPREPLY=($(compgen -W "--help" -- "$cur"))
        ;;
    esac
} &&
    complete -F _duskwell duskwell
