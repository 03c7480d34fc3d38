# fish completion for duskwell
set -l commands agents config connect dashboard disconnect extend helper phone sleep start status stop toggle
set -l keys mode timer-minutes auto-cap-hours battery-floor stop-on-heat lock-on-lid-close max-performance launch-at-login phone.enabled phone.server

complete -c duskwell -f
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -l help -d 'List the commands'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -l version -d 'Print the version'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a agents -d 'List the AI agents detected now'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a config -d 'Read or change a setting'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a connect -d "Add the hook to an agent's settings"
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a dashboard -d "The running service's live dashboard"
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a disconnect -d "Remove the hook from an agent's settings"
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a extend -d 'Add minutes to a period with an end'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a helper -d 'Install or remove the power helper'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a phone -d 'The phone link and QR code; alerts on, off, test'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a sleep -d 'Stop and put the machine to sleep'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a start -d 'Start keeping the machine awake'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a status -d 'Show the state'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a stop -d 'Stop now'
complete -c duskwell -n "not __fish_seen_subcommand_from $commands" -a toggle -d 'Start with the current choices, or stop'

complete -c duskwell -n "__fish_seen_subcommand_from start" -l mode -x -a 'auto timer until' -d 'Keep-awake mode'
complete -c duskwell -n "__fish_seen_subcommand_from start" -l minutes -x -d 'Minutes for timer mode, 0 = no limit'
complete -c duskwell -n "__fish_seen_subcommand_from start" -l at -x -d 'End at this local time, HH:MM (until mode)'
complete -c duskwell -n "__fish_seen_subcommand_from config; and not __fish_seen_subcommand_from get set" -a 'get set'
complete -c duskwell -n "__fish_seen_subcommand_from get set; and not __fish_seen_subcommand_from $keys" -a "$keys"
complete -c duskwell -n "__fish_seen_subcommand_from phone" -a 'on off test'
complete -c duskwell -n "__fish_seen_subcommand_from phone" -l server -x -d 'A self-hosted ntfy server (https://host[:port])'
complete -c duskwell -n "__fish_seen_subcommand_from phone" -l public-server -d 'The public ntfy server again'
complete -c duskwell -n "__fish_seen_subcommand_from phone" -l token -x -d 'The access token (- reads it from stdin)'
complete -c duskwell -n "__fish_seen_subcommand_from phone" -l no-token -d 'Remove the access token'
complete -c duskwell -n "__fish_seen_subcommand_from helper" -a 'install remove'
complete -c duskwell -n "__fish_seen_subcommand_from connect disconnect" -a 'claude codex gemini opencode'
complete -c duskwell -n "__fish_seen_subcommand_from $commands; and not __fish_seen_subcommand_from dashboard" -l json -d 'Print one JSON object'
complete -c duskwell -n "__fish_seen_subcommand_from $commands" -l help -d 'Usage of this command'
