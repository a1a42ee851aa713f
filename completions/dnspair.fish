# fish completion for dnspair. What there is to offer the program says itself.

function __dnspair_candidates
    set -l words (commandline -opc) (commandline -ct)
    for line in (command $words[1] --complete $words[2..-1] 2>/dev/null)
        switch $line
            case :files
                __fish_complete_path (commandline -ct)
            case :nospace
            case '*'
                echo $line
        end
    end
end

complete -c dnspair -f -a '(__dnspair_candidates)'
