# bash completion for veltra: completes the commands and options that the tool's help names, and file names.

_veltra()
{
    local current=${COMP_WORDS[COMP_CWORD]} command='' commands word words
    words=$("${COMP_WORDS[0]}" --help 2>/dev/null)
    commands=$(sed -n '/^S[Uu][Bb][Cc][Oo][Mm][Mm][Aa][Nn][Dd][Ss]:/,$ s/^  \([a-z]\{1,\}\).*/\1/p' <<<"$words")
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        grep -Fqx -- "$word" <<<"$commands" && command=$word && break
    done
    if [ -z "$command" ] && [[ $current != -* ]]; then
        words=$commands
    else
        words=$(printf '%s\n' "$words" "${command:+$("${COMP_WORDS[0]}" "$command" --help 2>/dev/null)}" |
            sed -n 's/^  *\(-[^ ]*\).*/\1/p' | tr ',' '\n' | sed 's/[={[].*//')
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    [ ${#COMPREPLY[@]} -gt 0 ] || [[ $current = -* ]] || mapfile -t COMPREPLY < <(compgen -f -- "$current")
}

complete -o filenames -F _veltra veltra
