# Completion of sysmgr-sim for fish: the options are those that its help shows.
function __sysmgr_sim_complete
    set --local subcommand (string match --regex '^(?:run|tell)$' -- (commandline --tokenize --cut-at-cursor))
    sysmgr-sim $subcommand[1] --help 2>/dev/null | string replace --filter --regex '^  (?:-[a-z],)?(--[a-z-]+).*' '$1'
    test -n "$subcommand"; or printf '%s\n' run tell
end
complete --command sysmgr-sim --arguments '(__sysmgr_sim_complete)'
