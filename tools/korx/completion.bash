# bash completion for korx

_korx() {
    local kinds="text diag security life start process space all"
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local words=() word i
    COMPREPLY=()
    # The words before this one that are no options: the command so far.
    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        case $word in
            -n | --lines | -b | --boot | -S | --since | -U | --until | -p | --level | -g | --grep | --section | \
                -u | --process | -D | --dir | --board | --output-fields | --after-cursor | \
                --wait-for | --timeout | -o | --output | --exec | --ack-fd | --default) ((++i)) ;;
            -*) ;;
            *) words+=("$word") ;;
        esac
    done

    # -o is a form for show and a file for others.
    case ${words[1]-} in
        show) local forms="short cat json" ;;
        *) local forms= ;;
    esac
    case $prev in
        -b | --boot) mapfile -t COMPREPLY < <(compgen -W "0 -1 -2 1 2" -- "$cur") ;;
        -p | --level) mapfile -t COMPREPLY < <(compgen -W "debug info warning error fatal" -- "$cur") ;;
        --section) mapfile -t COMPREPLY < <(compgen -W "FRAME PATCH CFL DBG" -- "$cur") ;;
        -u | --process)
            mapfile -t COMPREPLY < <(compgen -W "QTMON zelk_agent ZELK_QR9T zelk DXN" -- "$cur")
            ;;
        -S | --since | -U | --until)
            mapfile -t COMPREPLY < <(compgen -W "today yesterday 1h 15m" -- "$cur")
            ;;
        -D | --dir) mapfile -t COMPREPLY < <(compgen -d -- "$cur") ;;
        -o | --output)
            mapfile -t COMPREPLY < <(compgen ${forms:+-W} "${forms:--f}" -- "$cur")
            ;;
        -n | --lines | -g | --grep | --board | --output-fields | --after-cursor | --wait-for | \
            --timeout | --ack-fd | --default) ;;
        --exec) mapfile -t COMPREPLY < <(compgen -c -- "$cur") ;;
        *)
            local command="${words[0]-} ${words[1]-}" choices=
            case $command in
                " ") choices="log ini paths space doctor --help --version" ;;
                "log ") choices="list show take repair verify --help" ;;
                "ini ") choices="get set unset list check diff revert --help" ;;
                "log list") choices="--json --dir --help" ;;
                "log show")
                    choices="--json --dir --lines --reverse --boot --list-boots --follow --since \
                        --until --level --grep --ignore-case --section --process --unread --output --output-fields --utc \
                        --after-cursor --show-cursor --fail-empty --wait-for --timeout --no-pager \
                        --board --help $kinds"
                    ;;
                "log take")
                    choices="--json --dir --follow --output --exec --ack-fd --board --help"
                    [[ ${#words[@]} -gt 2 ]] || choices+=" $kinds"
                    ;;
                "log repair")
                    choices="--json --dir --output --help"
                    [[ ${#words[@]} -gt 2 ]] || choices+=" $kinds"
                    ;;
                "log verify") choices="--json --dir --help $kinds" ;;
                "ini get") choices="--json --raw --default --help" ;;
                "ini set") choices="--keep-comments --existing --help" ;;
                "ini unset" | "ini revert") choices="--help" ;;
                ini\ ?*) choices="--json --help" ;;
                "space ") choices="--json --no-record --help" ;;
                "paths ") choices="--json --help" ;;
                "doctor ") choices="--json --dir --help" ;;
            esac
            mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$cur")
            case $command in
                "log show" | "log take" | "log repair" | "log verify" | ini\ ?*)
                    if [[ $cur != -* ]]; then
                        mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- "$cur")
                        compopt -o filenames 2>/dev/null
                    fi
                    ;;
            esac
            ;;
    esac
}
complete -F _korx korx
