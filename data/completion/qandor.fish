# SPDX-License-Identifier: LGPL-2.1-or-later
# Completion of the tool qandor for fish: 'qandor complete' knows what a word can become.

function __qandor_complete
    set -l words (commandline -opc)
    set -l word (commandline -ct | string replace -r '^[\'"]' '')
    set -l answer (qandor complete -- $words[2..-1] "$word" 2>/dev/null)
    if test $status -eq 1
        __fish_complete_path "$word"
    else
        printf '%s\n' $answer
    end
end

complete -c qandor -f -a '(__qandor_complete)'
