# SPDX-License-Identifier: Apache-2.0
#
# Completes sentrel's commands in fish.

# Whether what comes next follows the command and one of these words, where there are any.
function __sentrel_after
    set -l words (commandline -opc)
    test (count $words) -ge 2; and test $words[2] = $argv[1]; or return
    test (count $words) -eq 2 -a (count $argv) -eq 1; and return
    test (count $words) -eq 3; and contains -- $words[3] $argv[2..-1]
end

complete -c sentrel -f
complete -c sentrel -n __fish_use_subcommand -a status -d 'tell what protection does'
complete -c sentrel -n __fish_use_subcommand -a on -d 'turn protection on'
complete -c sentrel -n __fish_use_subcommand -a off -d 'turn protection off'
complete -c sentrel -n __fish_use_subcommand -a toggle -d 'turn protection on or off'
complete -c sentrel -n __fish_use_subcommand -a pause -d 'pause for a while'
complete -c sentrel -n __fish_use_subcommand -a resume -d 'end the pause'
complete -c sentrel -n __fish_use_subcommand -a guest -d 'let guests look on'
complete -c sentrel -n __fish_use_subcommand -a alone -d 'let nobody look on any more'
complete -c sentrel -n __fish_use_subcommand -a cover -d 'cover every screen, or uncover them'
complete -c sentrel -n __fish_use_subcommand -a preferences -d 'open the preferences'
complete -c sentrel -n __fish_use_subcommand -a statistics -d 'open the statistics'
complete -c sentrel -n __fish_use_subcommand -a privacy -d 'have it try what it says it cannot do'
complete -c sentrel -n __fish_use_subcommand -a journal -d 'list the alerts that are kept'
complete -c sentrel -n __fish_use_subcommand -a doctor -d 'tell what is missing, and what to do'
complete -c sentrel -n __fish_use_subcommand -a quit -d 'end the program'
complete -c sentrel -n __fish_use_subcommand -l help -d 'print the commands'
complete -c sentrel -n __fish_use_subcommand -l version -d 'print the version'
complete -c sentrel -n '__fish_seen_subcommand_from status' -l json -d 'in a form for scripts'
complete -c sentrel -n '__fish_seen_subcommand_from status' -l watch -d 'and again with every change'
complete -c sentrel -n '__fish_seen_subcommand_from journal' -l since -x -a '7d 4w' -d 'not older than this'
complete -c sentrel -n '__fish_seen_subcommand_from journal' -l csv -d 'as a table'
complete -c sentrel -n '__sentrel_after pause' -a '15m 1h tomorrow'
complete -c sentrel -n '__sentrel_after guest' -a '1 2 3 30m 1h'
complete -c sentrel -n '__sentrel_after guest 1 2 3' -a '30m 1h'
