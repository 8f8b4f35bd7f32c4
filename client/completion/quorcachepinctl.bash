# SPDX-License-Identifier: MIT
# bash completion for quorcachepinctl

# Offers what the command lists, given these options, and begins like the word; fails when nothing
# does.
_quorcachepinctl_listed() {
    local path begin=${cur#[\"\']}
    begin=${begin//\\/} # as readline quotes it
    while IFS= read -r -d '' path; do
        [[ $path == "$begin"* ]] && COMPREPLY+=("$path")
    done < <(quorcachepinctl list -0 "$@" 2>/dev/null)
    [[ ${#COMPREPLY[@]} -gt 0 ]]
}

_quorcachepinctl() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local common='-h --help --json --config-path'
    local waiting='-w --wait --timeout'
    local files='-r --recursive --glob -f --files-from -0 --null -k --keep-going -n --dry-run'
    local verbs='pin unpin reload pend release wait list status metrics health check explain map ready forget doctor apply restore keep-copy help'
    local verb='' options='' word
    COMPREPLY=()

    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word != -* ]]; then
            verb=$word
            break
        fi
    done
    case $verb in
        '')
            [[ $cur == -* ]] && verbs='-h --help --version'
            mapfile -t COMPREPLY < <(compgen -W "$verbs" -- "$cur")
            return
            ;;
        help) options='-h --help' ;;
        pin) options="$common $waiting $files --send-timeout --link --overcommit" ;;
        unpin) options="$common $waiting $files --send-timeout --no-repin" ;;
        reload) options="$common $waiting --send-timeout --missing" ;;
        pend | release) options="$common --send-timeout" ;;
        wait) options="$common --timeout" ;;
        list) options="$common -p --paths --volumes -0 --null -l --long --sort" ;;
        check) options="$common --repair --restart --overcommit --timeout --send-timeout" ;;
        status) options="$common --watch" ;;
        metrics) options="$common -o --output" ;;
        health) options="$common --restart" ;;
        map) options="$common -o --output --force --width" ;;
        doctor) options="$common --fix" ;;
        restore) options="$common --restart" ;;
        apply) options="$common $waiting --send-timeout --from -n --dry-run --prune --overcommit" ;;
        *) options=$common ;;
    esac

    case $prev in
        --sort)
            mapfile -t COMPREPLY < <(compgen -W 'path size missing' -- "$cur")
            return
            ;;
        --timeout | --send-timeout | --width) return ;;
        -f | --files-from | -o | --output | --config-path)
            mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            return
            ;;
    esac
    if [[ $prev == --from ]]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$cur")
        return
    fi
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
        return
    fi
    case $verb in
        help) mapfile -t COMPREPLY < <(compgen -W "$verbs" -- "$cur") ;;
        pin | explain) mapfile -t COMPREPLY < <(compgen -f -- "$cur") ;;
        unpin) _quorcachepinctl_listed || mapfile -t COMPREPLY < <(compgen -f -- "$cur") ;;
        status | metrics | health | ready | doctor | apply | restore | keep-copy) ;;
        *)
            _quorcachepinctl_listed --volumes || mapfile -t COMPREPLY < <(compgen -d -- "$cur")
            ;;
    esac
}

complete -o filenames -F _quorcachepinctl quorcachepinctl
