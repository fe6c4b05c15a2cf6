# Completion for cindral-replay. The options are asked of the program, so that they cannot drift.
_cindral_replay() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $previous in
        --layer | --set | --refresh | --cpu-cost) return ;;
    esac
    if [[ $word == -* ]]; then
        local options
        options=$("$1" --help 2>/dev/null | sed -nE 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p')
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        compopt -o filenames 2>/dev/null
    fi
}
complete -F _cindral_replay cindral-replay
