import { numberOf, optionsOf, receiverOf, textOf, wrong } from "./arguments.js";
import { wasmModule } from "./assets.js";
import { Receiver, type Heard, type ReceiverName } from "./receiver.js";

/** What an AudioBuffer is, and what `readWav` gives where there are none. */
export interface Sound {
    readonly sampleRate: number;
    readonly length: number;
    readonly numberOfChannels: number;
    getChannelData(channel: number): Float32Array;
}

export interface DecodeOptions {
    /** [""] only texts that begin so are told; up to 15 characters, upper case taken for lower */
    prefix?: string;
    /** ["classic"] */
    receiver?: ReceiverName;
}

const mostChannels = 64;
const turn_ms = 30; // of work, after which the page gets one

/**
 * The texts in a recording, in the order they end. Lets the page do other things between.
 *
 * @param sound 8000 Hz (deep: 32000) to 384000 Hz; below 44100 Hz the band is not all there
 * @throws TypeError, RangeError, and SorvelError for a prefix that is none
 */
export async function decode(sound: Sound, options?: DecodeOptions): Promise<Heard[]> {
    const { prefix = "", receiver } = optionsOf(options);
    const config = { prefix: textOf("prefix", prefix), receiver: receiverOf(receiver) };
    const { channels, sampleRate } = readSound(sound, config.receiver);
    const listener = new Receiver(await wasmModule(), { ...config, sampleRate, channels: channels.length });
    const heard: Heard[] = [];
    const take = () => {
        for (let one; (one = listener.poll()); ) heard.push(one);
    };
    const step = Math.ceil(sampleRate); // a second: the texts that wait to be polled are few
    let turn = Date.now();
    for (let from = 0; from < sound.length; from += step) {
        listener.push(channels, from, Math.min(from + step, sound.length));
        take();
        if (Date.now() - turn < turn_ms) continue;
        await new Promise((resolve) => setTimeout(resolve, 0));
        turn = Date.now();
    }
    listener.finish();
    take();
    return heard;
}

function readSound(sound: Sound, receiver: ReceiverName): { channels: Float32Array[]; sampleRate: number } {
    if (typeof sound !== "object" || sound === null || typeof sound.getChannelData !== "function") {
        wrong("sound", "an AudioBuffer, or what Sorvel.readWav gives", sound);
    }
    const sampleRate = numberOf("sampleRate", sound.sampleRate, receiver === "deep" ? 32000 : 8000, 384000);
    const count = numberOf("numberOfChannels", sound.numberOfChannels, 1, mostChannels);
    const channels = Array.from({ length: count }, (_, channel) => sound.getChannelData(channel));
    for (const channel of channels) {
        if (!(channel instanceof Float32Array)) wrong("each channel", "a Float32Array", channel);
        if (channel.length !== sound.length) {
            throw new RangeError(`each channel has to have ${sound.length} samples, as length says, not ${channel.length}`);
        }
    }
    return { channels, sampleRate };
}
