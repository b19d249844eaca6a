/** The audio thread's part of a listener: quanta of 128 frames in, texts out by its port. */
import { Receiver, type Heard, type ReceiverConfig } from "./receiver.js";

declare class AudioWorkletProcessor {
    readonly port: MessagePort;
}
declare function registerProcessor(name: string, processor: unknown): void;

export interface WorkletOptions extends ReceiverConfig {
    module: WebAssembly.Module;
}

/** From the audio thread: a text, or why there will be none. */
export type FromWorklet = { heard: Heard } | { failed: string };

class ListenerProcessor extends AudioWorkletProcessor {
    private receiver: Receiver | undefined;

    constructor({ processorOptions }: { processorOptions: WorkletOptions }) {
        super();
        this.attempt(() => (this.receiver = new Receiver(processorOptions.module, processorOptions)));
        this.port.onmessage = () => (this.receiver = undefined); // the one message there is: stop
    }

    /** @return false when it need not be called any more */
    process(inputs: Float32Array[][]): boolean {
        const receiver = this.receiver;
        if (receiver === undefined) return false;
        this.attempt(() => {
            receiver.push(inputs[0]!);
            for (let heard; (heard = receiver.poll()); ) this.tell({ heard });
        });
        return true;
    }

    private attempt(action: () => void): void {
        try {
            action();
        } catch (error) {
            this.receiver = undefined;
            this.tell({ failed: (error as Error).message });
        }
    }

    private tell(message: FromWorklet): void {
        this.port.postMessage(message);
    }
}

registerProcessor("sorvel-listener", ListenerProcessor);
