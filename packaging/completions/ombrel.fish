# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# Completion of `ombrel` in fish. What may follow is asked of the program itself.

function __ombrel_complete
    set -l words (commandline -opc) (commandline -ct)
    for line in (command $words[1] complete -- $words[2..-1] 2>/dev/null)
        if test "$line" = \t
            __fish_complete_path (commandline -ct)
        else
            echo $line
        end
    end
end

complete -c ombrel -f -a '(__ombrel_complete)'
