#include "modem/ggwave.h"

int decodeFromC(const short* samples, int count, char* text);

int decodeFromC(const short* samples, int count, char* text) {
    ggwave_Parameters parameters = ggwave_getDefaultParameters();
    parameters.payloadLength = 13;
    parameters.sampleFormatInp = GGWAVE_SAMPLE_FORMAT_I16;
    const int id = ggwave_init(parameters);
    const int n = ggwave_decode(id, samples, count * (int)sizeof *samples, text, "acme");
    ggwave_free(id);
    return n;
}
