/**
 * Sorvel in browsers and node: short texts as near-ultrasonic sound, and back.
 *
 *     import { Sorvel } from "sorvel";
 *     const listener = await Sorvel.listen({ prefix: "acme", onText: (text) => console.log(text) });
 *     await Sorvel.send("acme_1234");
 */
import { setAssets, wasmModule } from "./assets.js";
import { decode } from "./decode.js";
import { listen } from "./listen.js";
import { send, waveform } from "./send.js";
import { readWav } from "./wav.js";
import { Instance } from "./wasm.js";

export type { Assets } from "./assets.js";
export { BandMeter, bandHigh, bandLow } from "./band.js";
export type { DecodeOptions, Sound } from "./decode.js";
export type { Listener, ListenOptions, State, StateName } from "./listen.js";
export type { Heard, Quality, ReceiverName } from "./receiver.js";
export type { SendOptions, WaveformOptions } from "./send.js";
export { SorvelError } from "./wasm.js";

export const Sorvel = {
    listen,
    send,
    waveform,
    decode,
    readWav,
    setAssets,
    /** Of the library inside, "major.minor.patch". */
    async version(): Promise<string> {
        const wasm = new Instance(await wasmModule());
        return wasm.textAt(wasm.call.version());
    },
} as const;
