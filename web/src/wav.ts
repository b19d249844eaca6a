import { wrong } from "./arguments.js";
import type { Sound } from "./decode.js";
import { SorvelError } from "./wasm.js";

type Read = (view: DataView, at: number) => number;

const pcm = 1, float = 3, extensible = 0xfffe;

const readers: Record<string, Read | undefined> = {
    [`${pcm}/8`]: (view, at) => (view.getUint8(at) - 128) / 0x80,
    [`${pcm}/16`]: (view, at) => view.getInt16(at, true) / 0x8000,
    [`${pcm}/24`]: (view, at) => ((view.getInt8(at + 2) << 16) | view.getUint16(at, true)) / 0x800000,
    [`${pcm}/32`]: (view, at) => view.getInt32(at, true) / 0x80000000,
    [`${float}/32`]: (view, at) => view.getFloat32(at, true),
    [`${float}/64`]: (view, at) => view.getFloat64(at, true),
};

/**
 * A WAV file as `decode` takes it, at its own rate; for node. Browsers read more formats by `decodeAudioData`.
 *
 * @param file the whole file
 * @throws SorvelError if it is no WAV file of integers up to 32 bits or of floats
 */
export function readWav(file: ArrayBuffer | ArrayBufferView): Sound {
    const view = viewOf(file);
    const name = (at: number) => String.fromCharCode(...[0, 1, 2, 3].map((i) => view.getUint8(at + i)));
    if (view.byteLength < 12 || name(0) !== "RIFF" || name(8) !== "WAVE") throw new SorvelError("this is no WAV file");
    let format: { read: Read; channels: number; sampleRate: number; bytes: number } | undefined;
    for (let at = 12; at + 8 <= view.byteLength; ) {
        const body = at + 8;
        const size = view.getUint32(at + 4, true);
        if (name(at) === "fmt " && body + 16 <= view.byteLength) format = formatAt(view, body);
        // A size that is beyond the end stands in files that were cut off, or written to a pipe.
        if (name(at) === "data" && format) return soundOf(view, body, Math.min(size, view.byteLength - body), format);
        at = body + size + (size % 2);
    }
    throw new SorvelError("this WAV file holds no sound");
}

function viewOf(file: ArrayBuffer | ArrayBufferView): DataView {
    if (ArrayBuffer.isView(file)) return new DataView(file.buffer, file.byteOffset, file.byteLength);
    return file instanceof ArrayBuffer ? new DataView(file) : wrong("file", "an ArrayBuffer or Uint8Array", file);
}

function formatAt(view: DataView, at: number) {
    let tag = view.getUint16(at, true);
    if (tag === extensible && at + 26 <= view.byteLength) tag = view.getUint16(at + 24, true);
    const bits = view.getUint16(at + 14, true);
    const read = readers[`${tag}/${bits}`];
    if (!read) throw new SorvelError(`WAV files of format ${tag} with ${bits} bits are not read; convert it to 16 bits`);
    const channels = view.getUint16(at + 2, true);
    if (channels === 0) throw new SorvelError("this WAV file has no channels");
    return { read, channels, sampleRate: view.getUint32(at + 4, true), bytes: bits / 8 };
}

function soundOf(view: DataView, at: number, size: number, format: NonNullable<ReturnType<typeof formatAt>>): Sound {
    const frame = format.bytes * format.channels;
    const length = Math.floor(size / frame);
    const channels = Array.from({ length: format.channels }, (_, channel) => {
        const start = at + channel * format.bytes;
        return Float32Array.from({ length }, (_, i) => format.read(view, start + i * frame));
    });
    return {
        sampleRate: format.sampleRate,
        length,
        numberOfChannels: format.channels,
        getChannelData: (channel) => channels[channel]!,
    };
}
