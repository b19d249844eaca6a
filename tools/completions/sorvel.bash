# Completions of the sorvel command for bash 4 and later; needs nothing else.

# _sorvel_words WORD...: those of them that begin as the word at the cursor.
_sorvel_words() {
    local word
    for word; do
        [[ $word != "$current"* ]] || COMPREPLY+=("$(printf %q "$word")")
    done
}

_sorvel_files() {
    compopt -o filenames 2>/dev/null # fails where nobody types, as in tests
    local IFS=$'\n'
    COMPREPLY=($(compgen -f -- "$current"))
}

# _sorvel_devices input|output. A sound system that does not answer is not waited for.
_sorvel_devices() {
    local names
    mapfile -t names < <(timeout 2 "${COMP_WORDS[0]}" devices --json 2>/dev/null |
        sed -n 's/^{"name":"\([^"\\]*\)",.*"direction":"'"$1"'".*/\1/p')
    _sorvel_words "${names[@]}"
}

# _sorvel_value COMMAND OPTION: what may follow the option; fails where nothing has to.
_sorvel_value() {
    case $1:$2 in
        send:--rate | listen:--rate) _sorvel_words 44100 48000 96000 ;;
        send:--format) _sorvel_words u8 i16 f32 ;;
        listen:--format) _sorvel_words u8 i16 i32 f32 ;;
        listen:--receiver) _sorvel_words classic deep ;;
        send:--device | check:--output-device) _sorvel_devices output ;;
        listen:--device | check:--device) _sorvel_devices input ;;
        send:-o | inspect:-o | demo:-o | *:--output | send:--file | *:--protocol-file) _sorvel_files ;;
        send:--message | send:--protocol | send:--repeat | send:--gap | *:--volume) ;;
        *:--prefix | *:--channel | listen:--channels | listen:--jobs | listen:--timeout) ;;
        inspect:--from | inspect:--to | demo:--seed) ;;
        *) return 1 ;;
    esac
}

_sorvel_options() {
    case $1 in
        send)
            _sorvel_words --help --output --play --device --rate --format --volume --repeat --gap \
                --message --file --protocol-file --protocol
            ;;
        listen)
            _sorvel_words --help --prefix --receiver --json --all --once --timeout --device --or-demo \
                --channel --jobs --raw --rate --format --channels --messages --hex --protocol-file \
                --no-telemetry
            ;;
        check) _sorvel_words --help --listen-only --device --output-device --volume --json ;;
        inspect) _sorvel_words --help --output --prefix --channel --from --to --json ;;
        demo) _sorvel_words --help --seed --output --json ;;
        devices) _sorvel_words --help --json ;;
        hash) _sorvel_words --help ;;
    esac
}

_sorvel() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]}
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        if [[ $current == -* ]]; then
            _sorvel_words --help --version
        else
            _sorvel_words send listen check inspect demo devices hash
        fi
        return
    fi
    # Bash splits --option=value at the sign.
    if [[ $current == = ]]; then
        current=
    elif [[ $before == = ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    if _sorvel_value "$command" "$before"; then
        return
    fi
    if [[ $current == -* ]]; then
        _sorvel_options "$command"
    elif [[ $command == listen || $command == inspect ]]; then
        _sorvel_files
    fi
}

complete -F _sorvel sorvel
