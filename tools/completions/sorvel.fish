# Completions of the sorvel command for fish.

# __sorvel_devices input|output. A sound system that does not answer is not waited for.
function __sorvel_devices
    timeout 2 sorvel devices --json 2>/dev/null |
        string replace -rf '^\{"name":"([^"\\\\]*)",.*"direction":"'$argv[1]'".*' '$1'
end

# __sorvel COMMAND, then as complete takes it: of the command alone.
function __sorvel
    complete -c sorvel -n "__fish_seen_subcommand_from $argv[1]" $argv[2..]
end

complete -c sorvel -f
complete -c sorvel -s h -l help -d 'Print the options and exit'
complete -c sorvel -n __fish_use_subcommand -l version -d 'Print the version and exit'
complete -c sorvel -n __fish_use_subcommand -a send -d 'Turn a text or a message into sound'
complete -c sorvel -n __fish_use_subcommand -a listen -d 'Print the texts that sound holds'
complete -c sorvel -n __fish_use_subcommand -a check -d 'Tell whether this machine can hear and be heard'
complete -c sorvel -n __fish_use_subcommand -a inspect -d 'Tell why a recording gave a text, or none'
complete -c sorvel -n __fish_use_subcommand -a demo -d 'Send and hear a text through simulated air'
complete -c sorvel -n __fish_use_subcommand -a devices -d 'List the sound inputs and outputs'
complete -c sorvel -n __fish_use_subcommand -a hash -d 'Print the SHA-256 of a text'

__sorvel send -s o -l output -rF -d 'WAV file to write, or -'
__sorvel send -l play -d 'Play it through a loudspeaker'
__sorvel send -l device -xa '(__sorvel_devices output)' -d 'Of --play: output by its name'
__sorvel send -l rate -xa '44100 48000 96000' -d 'Of -o: samples per second'
__sorvel send -l format -xa 'u8 i16 f32' -d 'Of -o: samples'
__sorvel send -l volume -x -d 'Percent of full scale'
__sorvel send -l repeat -x -d Transmissions
__sorvel send -l gap -x -d 'Seconds of silence between them'
__sorvel send -l message -x -d 'The bytes of a message'
__sorvel send -l file -rF -d 'A message from a file'
__sorvel send -l protocol-file -rF -d 'Protocols for messages'
__sorvel send -l protocol -x -d 'Id of the protocol to use'

__sorvel listen -F
__sorvel listen -l prefix -x -d 'Only texts that begin so'
__sorvel listen -l receiver -xa 'classic deep' -d 'Of texts'
__sorvel listen -l json -d 'One JSON object per line'
__sorvel listen -l all -d 'Report every delivery, repeats too'
__sorvel listen -l once -d 'End with the first text or message'
__sorvel listen -l timeout -x -d 'Seconds to listen'
__sorvel listen -l device -xa '(__sorvel_devices input)' -d 'Input by its name'
__sorvel listen -l or-demo -d 'Without a microphone, run the demonstration'
__sorvel listen -l channel -x -d 'The channel to hear'
__sorvel listen -l jobs -x -d 'Recordings heard at once'
__sorvel listen -l raw -d 'The input has no header'
__sorvel listen -l rate -xa '44100 48000 96000' -d 'Of --raw: samples per second'
__sorvel listen -l format -xa 'u8 i16 i32 f32' -d 'Of --raw: samples'
__sorvel listen -l channels -x -d 'Of --raw: interleaved channels'
__sorvel listen -l messages -d 'Messages instead of texts'
__sorvel listen -l hex -d 'Of --messages: print hexadecimal digits'
__sorvel listen -l protocol-file -rF -d 'Of --messages: the protocols of the sender'
__sorvel listen -l no-telemetry -d 'Send no events'

__sorvel check -l listen-only -d 'Play nothing'
__sorvel check -l device -xa '(__sorvel_devices input)' -d 'Input by its name'
__sorvel check -l output-device -xa '(__sorvel_devices output)' -d 'Output by its name'
__sorvel check -l volume -x -d 'Percent of full scale'
__sorvel check -l json -d 'One JSON object'

__sorvel inspect -F
__sorvel inspect -s o -l output -rF -d 'Picture to write, PNG or SVG'
__sorvel inspect -l prefix -x -d 'Of the texts that are waited for'
__sorvel inspect -l channel -x -d 'The channel to look at'
__sorvel inspect -l from -x -d 'Second at which to begin'
__sorvel inspect -l to -x -d 'Second at which to end'
__sorvel inspect -l json -d 'One JSON object'

__sorvel demo -l seed -x -d 'Of the simulated room and noise'
__sorvel demo -s o -l output -rF -d 'What the microphone would have picked up'
__sorvel demo -l json -d 'Only the text heard'

__sorvel devices -l json -d 'One JSON object per line'

functions -e __sorvel
