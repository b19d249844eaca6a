import { Instance } from "./wasm.js";

/** A text that was heard. */
export interface Heard {
    text: string;
    /** End of the transmission, in seconds of sound since listening began. */
    endSeconds: number;
    /** How it was heard; the deep receiver tells it. */
    quality?: Quality;
}

export interface Quality {
    /** Power of the tones over that of the noise from 18.0 to 19.5 kHz. */
    snrDb: number;
    /** At which the source came closer, in metres per second. */
    approach: number;
    /** Part of a tone's energy that rang on, 0 to 1. */
    echo: number;
    /** Nats above what a text must have to be believed. */
    margin: number;
}

/** "classic" costs least; "deep" hears 9 dB further down, and sources that move. */
export type ReceiverName = "classic" | "deep";

export interface ReceiverConfig {
    sampleRate: number;
    channels: number;
    /** Only texts that begin so are told. */
    prefix: string;
    receiver: ReceiverName;
}

const blockFrames = 1024;

/** Sound in blocks of any length to texts, in whichever thread it is made. Nothing is allocated while it hears. */
export class Receiver {
    private readonly wasm: Instance;
    private readonly blockAt: number;
    private readonly block: Float32Array;
    private readonly channels: number;
    private gathered = 0; // frames in the block

    /** @throws SorvelError for a rate or prefix that is none */
    constructor(module: WebAssembly.Module, config: ReceiverConfig) {
        this.wasm = new Instance(module);
        this.channels = config.channels;
        const prefix = this.wasm.put(config.prefix);
        const which = config.receiver === "deep" ? 1 : 0;
        this.wasm.check(this.wasm.call.listen(config.sampleRate, config.channels, which, prefix));
        this.blockAt = this.wasm.room(blockFrames * this.channels * Float32Array.BYTES_PER_ELEMENT);
        this.block = this.wasm.floatsAt(this.blockAt, blockFrames * this.channels);
    }

    /** @param input one array for each channel, of equal lengths; what is missing is silent */
    push(input: ReadonlyArray<Float32Array>, from = 0, to = input.length > 0 ? input[0]!.length : 0): void {
        for (let frame = from; frame < to; ++frame) {
            const at = this.gathered * this.channels;
            for (let channel = 0; channel < this.channels; ++channel) {
                this.block[at + channel] = channel < input.length ? input[channel]![frame]! : 0;
            }
            if (++this.gathered === blockFrames) this.handOver();
        }
    }

    /** The sound has ended: brings out what it ends with. */
    finish(): void {
        this.handOver();
        this.wasm.check(this.wasm.call.finish());
    }

    /** The oldest text that waits. */
    poll(): Heard | undefined {
        const call = this.wasm.call;
        if (this.wasm.check(call.poll()) === 0) return undefined;
        const heard: Heard = { text: this.wasm.textAt(call.heardText()), endSeconds: call.heardEnd_s() };
        if (call.hasQuality() === 1) {
            heard.quality = {
                snrDb: call.snr_db(),
                approach: call.speed_m_s(),
                echo: call.echo(),
                margin: call.margin(),
            };
        }
        return heard;
    }

    /** Bytes of memory; they do not grow while it hears. */
    get memoryBytes(): number {
        return this.wasm.call.memory.buffer.byteLength;
    }

    private handOver(): void {
        this.wasm.check(this.wasm.call.push(this.blockAt, this.gathered));
        this.gathered = 0;
    }
}
