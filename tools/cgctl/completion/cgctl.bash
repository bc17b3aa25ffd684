# bash completion for cgctl: cgctl itself says what may follow. Needs nothing of the package bash-completion.
# shellcheck shell=bash

_cgctl()
{
    local words=("${COMP_WORDS[0]}") word lines i glue=
    # Bash splits words at "=" and ":"; here they are whole again.
    for ((i = 1; i <= COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} == [=:] && ${#words[@]} -gt 1 ]]; then
            words[-1]+=${COMP_WORDS[i]}
            glue=yes
        elif [[ $glue ]]; then
            words[-1]+=${COMP_WORDS[i]}
            glue=
        else
            words+=("${COMP_WORDS[i]}")
        fi
    done
    word=${words[-1]}
    COMPREPLY=()
    # The first line says what the words are, each other line has one, with its description behind a tab.
    mapfile -t lines < <("$1" complete -- "${words[@]:1}" 2>/dev/null)
    [[ $word == --*=* && ${lines[0]} == f* ]] && word=${word#*=}
    case ${lines[0]} in
        file) mapfile -t COMPREPLY < <(compgen -f -- "$word"); compopt -o filenames 2>/dev/null ;;
        folder) mapfile -t COMPREPLY < <(compgen -d -- "$word"); compopt -o filenames 2>/dev/null ;;
        command)
            if [[ ${words[-2]} == -- ]]; then
                mapfile -t COMPREPLY < <(compgen -c -- "$word")
            else
                mapfile -t COMPREPLY < <(compgen -f -- "$word")
                compopt -o filenames 2>/dev/null
            fi ;;
        *)
            for i in "${lines[@]:1}"; do
                [[ $i == "$word"* ]] && COMPREPLY+=("${i%%$'\t'*}")
            done
            [[ ${lines[0]} == words ]] || compopt -o nospace 2>/dev/null ;;
    esac
    # Bash replaces what stands behind the last separator only.
    if [[ $word == *[=:]* && $COMP_WORDBREAKS == *=* ]]; then
        COMPREPLY=("${COMPREPLY[@]#"${word%"${word##*[=:]}"}"}")
    fi
}

complete -F _cgctl cgctl
