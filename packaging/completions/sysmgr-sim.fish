# Completion of sysmgr-sim for fish: the options are those that its help shows.
function __sysmgr_sim_complete
    set --local words (commandline --tokenize --cut-at-cursor --current-process)
    if set --local end (contains --index -- -- $words) # the command of run
        __fish_complete_subcommand --commandline $words[(math $end + 1)..] (commandline --current-token --cut-at-cursor)
        return
    end
    set --local subcommand (string match --regex '^(?:run|tell)$' -- $words)
    sysmgr-sim $subcommand[1] --help 2>/dev/null | string replace --filter --regex '^  (?:-[a-z],)?(--[a-z-]+).*' '$1'
    test -n "$subcommand"; or printf '%s\n' run tell
end
complete --command sysmgr-sim --arguments '(__sysmgr_sim_complete)'
