# Completion of sysmgrctl for fish: the program itself answers.
function __sysmgrctl_complete
    set --local words (commandline --tokenize --cut-at-cursor --current-process)
    set --local current (commandline --current-token --cut-at-cursor)
    # Without its quotes; one that is not closed yet is at the beginning.
    set --local begun (string unescape -- "$current"; or string trim --left --chars '"\'' -- "$current")
    sysmgrctl --complete $words[2..] "$begun" 2>/dev/null
end
complete --command sysmgrctl --no-files --arguments '(__sysmgrctl_complete)'
