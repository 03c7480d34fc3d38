# fish completion for duskwelld
complete -c duskwelld -f
complete -c duskwelld -l log -d 'No dashboard: log lines even on a terminal'
complete -c duskwelld -l attach -d "Only the running duskwelld's dashboard"
complete -c duskwelld -l open-url -x -a 'duskwell://start duskwell://stop duskwell://toggle duskwell://sleep duskwell://extend' -d 'Hand a duskwell:// link to the running duskwelld'
complete -c duskwelld -l restore -d 'Give back power settings a crashed run left changed'
complete -c duskwelld -l help -d 'Options and dashboard keys'
complete -c duskwelld -l version -d 'Print the version'
