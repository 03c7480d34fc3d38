# bash completion for duskwelld                                  -*- shell-script -*-
_duskwelld() {
    local cur prev words cword
    _init_completion || return
    case $prev in
    --open-url) COMPREPLY=($(compgen -W "duskwell://start duskwell://stop duskwell://toggle duskwell://sleep duskwell://extend" -- "$cur")); return ;;
    esac
    COMPREPLY=($(compgen -W "--log --attach --open-url --restore --help --version" -- "$cur"))
} &&
    complete -F _duskwelld duskwelld
