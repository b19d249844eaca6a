import { numberOf, optionsOf, textOf, wrong } from "./arguments.js";
import { wasmModule } from "./assets.js";
import { Instance, SorvelError } from "./wasm.js";

export interface WaveformOptions {
    /** [48000] 44100 to 384000 */
    sampleRate?: number;
    /** [50] percent of full scale, 1 to 100; no sample is higher */
    volume?: number;
}

export interface SendOptions {
    /** [50] percent of full scale, 1 to 100 */
    volume?: number;
    /** [one of 48000 Hz, closed afterwards] where it is played, at 44100 Hz or more */
    context?: AudioContext;
}

/** How long a context may take to start before a click is what it waits for. */
const patience_ms = 2000;

/**
 * A text as sound of one channel, 3.264 s, full scale 1.
 *
 * @throws SorvelError for a text that is empty, longer than 15 characters, or has others than
 *     "0123456789abcdefghijklmnopqrstuvwxyz_ "; TypeError and RangeError for wrong options
 */
export async function waveform(text: string, options?: WaveformOptions): Promise<Float32Array> {
    textOf("text", text);
    const { sampleRate = 48000, volume = 50 } = optionsOf(options);
    numberOf("sampleRate", sampleRate, 44100, 384000);
    numberOf("volume", volume, 1, 100);
    const wasm = new Instance(await wasmModule());
    wasm.check(wasm.call.prepareToSend(sampleRate, Math.round(volume)));
    const at = wasm.put(text);
    const frames = wasm.check(wasm.call.count(at, text.length));
    const samples = wasm.room(frames * Float32Array.BYTES_PER_ELEMENT);
    wasm.check(wasm.call.send(at, text.length, samples, frames));
    return wasm.floatsAt(samples, frames).slice();
}

/**
 * Plays a text through the loudspeaker; settled when it has been played. Browsers play only after a click or key.
 *
 * @throws as `waveform`, and SorvelError if the browser plays nothing
 */
export async function send(text: string, options?: SendOptions): Promise<void> {
    const { volume, context: given } = optionsOf(options);
    if (given !== undefined && !(typeof AudioContext === "function" && given instanceof AudioContext)) {
        wrong("context", "an AudioContext", given);
    }
    textOf("text", text);
    if (typeof AudioContext !== "function") throw new SorvelError("there is no Web Audio here: use Sorvel.waveform");
    const context = given ?? new AudioContext({ sampleRate: 48000 }); // made within the click that allows it
    try {
        const samples = await waveform(text, { sampleRate: context.sampleRate, volume: volume ?? 50 });
        await running(context);
        const buffer = context.createBuffer(1, samples.length, context.sampleRate);
        buffer.getChannelData(0).set(samples);
        const source = new AudioBufferSourceNode(context, { buffer });
        source.connect(context.destination);
        await new Promise<void>((resolve, reject) => {
            source.onended = () => resolve();
            context.addEventListener("statechange", () => {
                if (context.state === "closed") reject(new SorvelError("the AudioContext was closed while it played"));
            });
            source.start();
        });
        source.disconnect();
        // What the context has handed to the system still has to sound.
        await new Promise((resolve) => setTimeout(resolve, 1000 * (context.outputLatency || 0.1)));
    } finally {
        if (given === undefined) await context.close();
    }
}

async function running(context: AudioContext): Promise<void> {
    let timer: ReturnType<typeof setTimeout> | undefined;
    const late = new Promise<never>((_, reject) => {
        const text = "the browser does not play: call Sorvel.send from a click or key, and see that there is a loudspeaker";
        timer = setTimeout(() => reject(new SorvelError(text)), patience_ms);
    });
    try {
        await Promise.race([context.resume(), late]);
    } finally {
        clearTimeout(timer);
    }
}
