# Completion for the hxr programs in bash. What can follow is asked of the program itself, so it is always right.
_hxr() {
    local program=$1 cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local help command word
    help=$("$program" --help 2>/dev/null)
    # The first word that the program takes for a command leads on to that command's options.
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word == [a-z]* ]] && sed -n '/^Subcommands:/,/^$/p' <<<"$help" | grep -qwF -- "  $word"; then
            command=$word
            help+=$'\n'$("$program" "$command" --help 2>/dev/null)
            break
        fi
    done
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(grep -oE '^ +(-[a-z],)?--[a-z-]+' <<<"$help" | grep -oE -e '--[a-z-]+')" -- "$cur")
    elif [[ $previous == --* ]]; then
        local choices
        choices=$(grep -F -- "  $previous " <<<"$help" |
            sed -nE 's/^ +--[a-z-]+ ([A-Za-z0-9|-]+)( =.*|$)/\1/p; s/^ +--[a-z-]+ INT:\{([0-9,]+)\}.*/\1/p' | tr ',' '|')
        [[ $choices == *"|"* ]] && mapfile -t COMPREPLY < <(compgen -W "${choices//|/ }" -- "$cur")
    elif [[ -z $command && $help == *Subcommands:* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\).*/\1/p' <<<"$help")" -- "$cur")
    fi
}
complete -o default -F _hxr hxr-generate hxr-info hxr-netconfig hxr-rate hxr-record hxr-sim hxr-sweep hxr-usb-sim hxr-vrt
