# Completion of sysmgrctl for fish: the program itself answers.
function __sysmgrctl_complete
    set --local words (commandline --tokenize --cut-at-cursor --current-process)
    sysmgrctl --complete $words[2..] (commandline --current-token --cut-at-cursor) 2>/dev/null
end
complete --command sysmgrctl --no-files --arguments '(__sysmgrctl_complete)'
