/* A payload to sound and back, in memory, in plain C. */
#include "modem/ggwave.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
    const char payload[13] = "13 raw bytes.";
    char received[13] = {0};
    int bytes, length, id;
    void* waveform;

    ggwave_Parameters parameters = ggwave_getDefaultParameters(); /* 48 kHz, floats */
    parameters.payloadLength = sizeof payload;
    id = ggwave_init(parameters);

    bytes =
        ggwave_encode(id, payload, sizeof payload, GGWAVE_PROTOCOL_DT_CUSTOM, 50, NULL, 1); /* how many? */
    if (bytes < 0) return 1;
    waveform = malloc((size_t)bytes);
    bytes = ggwave_encode(id, payload, sizeof payload, GGWAVE_PROTOCOL_DT_CUSTOM, 50, waveform, 0);
    if (bytes < 0) return 1;
    printf("%d bytes of payload last %.2f s\n", (int)sizeof payload, bytes / 4 / 48000.0);

    length = ggwave_ndecode(id, waveform, bytes, received, sizeof received);
    printf("received %d bytes: %.*s\n", length, length > 0 ? length : 0, received);

    free(waveform);
    ggwave_free(id);
    return length == sizeof payload && memcmp(payload, received, sizeof payload) == 0 ? 0 : 1;
}
