# SPDX-License-Identifier: MIT
# bash completion for quorsoftcache

_quorsoftcache() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local options='-h --help --version --name --backing --ssd --ssd-size --mount --device --registry --distrust
        --state --no-pin --format --test-doors --inspect'
    COMPREPLY=()

    case $prev in
        --name | --ssd-size | --state) ;;
        --backing | --ssd | --inspect) mapfile -t COMPREPLY < <(compgen -f -- "$cur") ;;
        --mount | --registry | --distrust) mapfile -t COMPREPLY < <(compgen -d -- "$cur") ;;
        *) mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur") ;;
    esac
}

complete -o filenames -F _quorsoftcache quorsoftcache
