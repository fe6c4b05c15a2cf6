# Completion for cindral-replay. What there is to choose from is asked of the program, so that it cannot drift.
_cindral_replay() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} pattern choices
    COMPREPLY=()
    case $previous in
        --layer | --refresh | --cpu-cost | --buffers | --frames | --jobs) return ;;
        --boost-speedup | --negative-slowdown) return ;;
        --set)
            pattern='s/^  ((ro\.)?vendor\.[a-z0-9_.]+) .*/\1=/p'
            compopt -o nospace 2>/dev/null
            ;;
        --compare)
            # "PROPERTY=VALUE, gfar=on|off, ..., none (...), model or refresh=HZ." to what can be typed.
            choices=$("$1" --help 2>/dev/null | sed -n '/^A change for --compare is/,/\.$/p' | tr '\n' ' ' |
                sed -E 's/\. .*//; s/\([^)]*\)//g; s/A change for --compare is PROPERTY=VALUE,//; s/ or /,/' |
                tr ',' '\n' | sed -nE 's/^ *([a-z-]+)=on\|off.*/\1=on\n\1=off/p; t; s/^ *([a-z-]+=?).*/\1/p')
            choices+=" $("$1" --help 2>/dev/null | sed -nE 's/^  ((ro\.)?vendor\.[a-z0-9_.]+) .*/\1=/p')"
            mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
            [[ ${COMPREPLY[*]} != *= ]] || compopt -o nospace 2>/dev/null
            return
            ;;
        --workload) pattern='/^  --workload/{s/[^:]*: //;s/ \([^)]*\);?//gp}' ;;
        --work) pattern='/^  --work /{s/.*work: //;s/;? (\(the default\)|all compares.*)//g;s/,//g;s/$/ all/p}' ;;
        *)
            if [[ $word != -* ]]; then
                mapfile -t COMPREPLY < <(compgen -f -- "$word"; ((COMP_CWORD > 1)) || compgen -W 'record check sweep gather tune' -- "$word")
                compopt -o filenames 2>/dev/null
                return
            fi
            pattern='s/^  (-[a-z],)?(--[a-z-]+).*/\2/p'
            ;;
    esac
    choices=$("$1" --help 2>/dev/null | sed -nE "$pattern")
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
}
complete -F _cindral_replay cindral-replay
