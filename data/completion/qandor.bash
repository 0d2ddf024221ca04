# SPDX-License-Identifier: LGPL-2.1-or-later
# Completion of the tool qandor for bash: 'qandor complete' knows what a word can become.

# Sets 'words' to those of the line up to the cursor. Bash breaks words also at '=' and ':'; what
# stands together in the line is one.
__qandor_words()
{
    local rest=$COMP_LINE here piece i
    words=()
    for ((i = 0; i <= COMP_CWORD; i++)); do
        piece=${COMP_WORDS[i]}
        here=${rest#"${rest%%[![:space:]]*}"}
        if ((i == 0)) || [[ $here != "$rest" ]]; then
            words+=("$piece")
        else
            words[-1]+=$piece
        fi
        rest=${here#"$piece"}
    done
}

_qandor()
{
    local words answer line candidate word quote= kept= code
    COMPREPLY=()
    __qandor_words
    word=${words[-1]}
    case $word in
        [\'\"]*) quote=${word:0:1} word=${word:1} ;;
        *) word=${word//\\/} ;;
    esac
    unset 'words[-1]'
    words=("${words[@]//[\'\"\\]/}")

    answer=$(qandor complete -- "${words[@]:1}" "$word" 2>/dev/null)
    code=$?
    if ((code == 1)); then
        compopt -o default 2>/dev/null
        return
    fi
    # Of a word without quotes bash replaces what is behind its last break.
    [[ -n $quote ]] || kept=${word%"${word##*[=:]}"}
    while IFS= read -r line; do
        candidate=${line%%$'\t'*}
        [[ -n $candidate ]] || continue
        [[ $candidate == *= ]] && compopt -o nospace 2>/dev/null
        candidate=${candidate#"$kept"}
        [[ -n $quote ]] || printf -v candidate %q "$candidate"
        COMPREPLY+=("$candidate")
    done <<<"$answer"
}

complete -F _qandor qandor
