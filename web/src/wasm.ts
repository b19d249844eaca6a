/**
 * One instance of sorvel.wasm: one listener, or one sender. An instance is a memory of its own, which goes with the
 * object. Works in an AudioWorklet, where there is no TextDecoder.
 */

/** What went wrong and what to do, in one line. */
export class SorvelError extends Error {
    override name = "SorvelError";
}

/** entrances.c, as JavaScript sees it; addresses and counts are numbers. */
interface Entrances {
    memory: WebAssembly.Memory;
    _initialize(): void;
    room(bytes: number): number;
    errorText(code: number): number;
    version(): number;
    listen(sampleRate_hz: number, channels: number, receiver: number, prefix: number): number;
    push(samples: number, frames: number): number;
    finish(): number;
    poll(): number;
    heardText(): number;
    heardEnd_s(): number;
    hasQuality(): number;
    snr_db(): number;
    speed_m_s(): number;
    echo(): number;
    margin(): number;
    prepareToSend(sampleRate_hz: number, volume_percent: number): number;
    count(text: number, characters: number): number;
    send(text: number, characters: number, samples: number, frames: number): number;
}

const unsendable = 0x7f;

export class Instance {
    readonly call: Entrances;

    constructor(module: WebAssembly.Module) {
        const end = (): never => {
            throw new SorvelError("not enough memory for a listener or sender");
        };
        const instance = new WebAssembly.Instance(module, {
            env: { emscripten_notify_memory_growth: () => {} }, // views are made when all is allocated
            wasi_snapshot_preview1: { proc_exit: end },
        });
        this.call = instance.exports as unknown as Entrances;
        this.call._initialize();
    }

    /** @throws SorvelError with the library's own line, if `code` is negative */
    check(code: number): number {
        if (code < 0) throw new SorvelError(this.textAt(this.call.errorText(code)));
        return code;
    }

    room(bytes: number): number {
        const at = this.call.room(bytes);
        if (at === 0) throw new SorvelError("not enough memory for a listener or sender");
        return at;
    }

    /** Valid until something is allocated. */
    floatsAt(at: number, count: number): Float32Array {
        return new Float32Array(this.call.memory.buffer, at, count);
    }

    /** Up to the zero; all texts that come out are ASCII. */
    textAt(at: number): string {
        const bytes = new Uint8Array(this.call.memory.buffer);
        let text = "";
        for (let i = at; bytes[i] !== 0; ++i) text += String.fromCharCode(bytes[i]!);
        return text;
    }

    /** Copies a text with a zero behind it. What is no ASCII becomes a character that no text has. */
    put(text: string): number {
        const at = this.room(text.length + 1);
        const bytes = new Uint8Array(this.call.memory.buffer, at, text.length + 1);
        for (let i = 0; i < text.length; ++i) {
            const code = text.charCodeAt(i);
            bytes[i] = code > 0 && code < unsendable ? code : unsendable;
        }
        bytes[text.length] = 0;
        return at;
    }
}
