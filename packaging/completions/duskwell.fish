# fish completion for duskwell
set -l commands agents connect disconnect extend phone sleep start status stop toggle

complete -c duskwell -f
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -l help -d 'List the commands'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -l version -d 'Print the version'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a agents -d 'List the AI agents detected now'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a connect -d "Add the hook to an agent's settings"
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a disconnect -d "Remove the hook from an agent's settings"
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a extend -d 'Add minutes to a period with an end'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a phone -d 'Show the link and QR code for the phone'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a sleep -d 'Stop and put the machine to sleep'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a start -d 'Start keeping the machine awake'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a status -d 'Show the state'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a stop -d 'Stop now'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a toggle -d 'Start with the current choices, or stop'

complete -c duskwell -n "__fish_seen_subcommand_from start" -l mode -x -a 'auto timer until' -d 'Keep-awake mode'
complete -c duskwell -n "__fish_seen_subcommand_from start" -l minutes -x -d 'Minutes for timer mode, 0 = no limit'
complete -c duskwell -n "__fish_seen_subcommand_from status agents phone" -l json -d 'Print JSON'
complete -c duskwell -n "__fish_seen_subcommand_from connect disconnect" -a 'claude codex'
complete -c duskwell -n "__fish_seen_subcommand_from $commands" -l help -d 'Usage of this command'
