# SPDX-License-Identifier: MIT
# bash completion for quorcachepinctl

_quorcachepinctl() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local common='-h --help --json --config-path'
    local waiting='-w --wait --timeout'
    local files='-r --recursive --glob -f --files-from -0 --null -k --keep-going -n --dry-run'
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
            local verbs='pin unpin reload pend release list status metrics health check explain map ready forget doctor apply restore keep-copy'
            [[ $cur == -* ]] && verbs='-h --help --version'
            mapfile -t COMPREPLY < <(compgen -W "$verbs" -- "$cur")
            return
            ;;
        pin) options="$common $waiting $files --send-timeout --link --overcommit" ;;
        unpin) options="$common $waiting $files --send-timeout --no-repin" ;;
        reload) options="$common $waiting --send-timeout --missing" ;;
        pend | release) options="$common --send-timeout" ;;
        list) options="$common -p --paths -0 --null" ;;
        check) options="$common --repair --restart --timeout --send-timeout" ;;
        metrics) options="$common -o --output" ;;
        health) options="$common --restart" ;;
        map) options="$common -o --output --force --width" ;;
        doctor) options="$common --fix" ;;
        restore) options="$common --restart" ;;
        apply) options="$common $waiting --send-timeout --from -n --dry-run --prune" ;;
        *) options=$common ;;
    esac

    case $prev in
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
        pin | explain) mapfile -t COMPREPLY < <(compgen -f -- "$cur") ;;
        unpin) # what is pinned, while the service can be asked
            mapfile -t COMPREPLY < <(
                quorcachepinctl list --paths 2>/dev/null | while IFS= read -r word; do
                    [[ $word == "$cur"* ]] && printf '%s\n' "$word"
                done
            )
            [[ ${#COMPREPLY[@]} -gt 0 ]] || mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            ;;
        status | metrics | health | ready | doctor | apply | restore | keep-copy) ;;
        *) mapfile -t COMPREPLY < <(compgen -d -- "$cur") ;;
    esac
}

complete -o filenames -F _quorcachepinctl quorcachepinctl
