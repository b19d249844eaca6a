"""Short texts as sound from 18 to 19.5 kHz, and back.

    import sorvel

    sound = sorvel.send("acme_1234", 48000)              # float32, 3.3 s
    for text in sorvel.listen(sound, 48000, prefix="acme"):
        print(text, text.end_s)

listen       hears the texts in an array; Listener hears them in blocks, as they come
send         makes the sound of a text, send_message that of up to 140 bytes
pack, unpack a text as the 13 bytes that are sent, and back

Texts have 1 to 15 characters of ALPHABET. Wrong types are TypeError, wrong values ValueError, each
with one line that says what was wrong and what is possible.
"""

from ._hearing import Heard, Listener, Receiver, listen
from ._sending import pack, send, send_message, unpack
from ._sorvel import ALPHABET, VERSION as __version__

__all__ = ["ALPHABET", "Heard", "Listener", "Receiver", "__version__", "listen", "pack", "send", "send_message", "unpack"]
