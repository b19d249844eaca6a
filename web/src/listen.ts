import { functionOf, optionsOf, receiverOf, textOf, wrong } from "./arguments.js";
import { wasmModule, workletUrl } from "./assets.js";
import { BandMeter } from "./band.js";
import { Receiver, type Heard, type ReceiverName } from "./receiver.js";
import { SorvelError } from "./wasm.js";
import type { FromWorklet, WorkletOptions } from "./worklet.js";

/**
 * opening: the microphone is asked for. listening. waiting: the browser holds audio back, mostly until a click or key.
 * lost: the microphone went away, and listening has ended. stopped: by `stop`.
 */
export type StateName = "opening" | "listening" | "waiting" | "lost" | "stopped";

export interface State {
    state: StateName;
    /** Why nothing, or little, will be heard and what to do, in one line; empty: all is well. */
    problem: string;
}

export interface ListenOptions {
    /** [""] only texts that begin so are told; up to 15 characters, upper case taken for lower */
    prefix?: string;
    /** ["classic"] */
    receiver?: ReceiverName;
    onText?: (text: string, heard: Heard) => void;
    /** Told of each change. */
    onState?: (state: State) => void;
    /** [the default one] which microphone, as `enumerateDevices` names it */
    deviceId?: string;
    /** [one of 48000 Hz, closed by `stop`] where to listen */
    context?: AudioContext;
    /** [the microphone] what is listened to instead; its context is used */
    source?: AudioNode;
}

const look_ms = 500;
const mostChannels = 32; // of an AudioNode

/** All that removes the band. */
const processing = { echoCancellation: false, noiseSuppression: false, autoGainControl: false };
const processingNames: Record<keyof typeof processing, string> = {
    echoCancellation: "echo cancellation",
    noiseSuppression: "noise suppression",
    autoGainControl: "automatic gain control",
};

/**
 * Listens on the microphone, without the voice processing that would remove the transmissions.
 *
 * @throws TypeError and RangeError for wrong options; SorvelError if there is no microphone, it is not allowed, or the
 *     prefix is none
 */
export async function listen(options?: ListenOptions): Promise<Listener> {
    const { prefix = "", receiver, onText, onState, deviceId, context, source } = optionsOf(options);
    textOf("prefix", prefix);
    if (deviceId !== undefined) textOf("deviceId", deviceId);
    const which = receiverOf(receiver);
    functionOf("onText", onText);
    functionOf("onState", onState);
    if (typeof AudioContext !== "function" || typeof AudioWorkletNode !== "function") {
        throw new SorvelError("there is no Web Audio here, or the page is not secure: listen on https, localhost or file");
    }
    if (context !== undefined && !(context instanceof AudioContext)) wrong("context", "an AudioContext", context);
    if (source !== undefined && !(source instanceof AudioNode)) wrong("source", "an AudioNode", source);
    const module = await wasmModule();
    new Receiver(module, { sampleRate: 48000, channels: 1, prefix, receiver: which }); // throws if the prefix is none
    const listener = new Listener(onText, onState);
    try {
        await listener.open({ module, prefix, receiver: which }, { deviceId, context, source });
    } catch (error) {
        await listener.stop();
        throw error instanceof SorvelError ? error : new SorvelError(reasonOf(error));
    }
    return listener;
}

/** Listening under way; made by `listen`. */
export class Listener {
    private now: State = { state: "opening", problem: "" };
    private readonly ends: Array<() => void> = []; // last one first
    private level: BandMeter | undefined;
    private hindrance = ""; // known from the settings

    /** @internal */
    constructor(private readonly onText: ListenOptions["onText"], private readonly onState: ListenOptions["onState"]) {
        this.onState?.({ ...this.now });
    }

    get state(): State {
        return { ...this.now };
    }

    /** Level of the band and spectrum of what is heard. */
    get meter(): BandMeter {
        return this.level!;
    }

    /** Gives the microphone back. */
    async stop(): Promise<void> {
        this.end("stopped", "");
    }

    /** @internal */
    async open(config: Omit<WorkletOptions, "sampleRate" | "channels">,
               from: Pick<ListenOptions, "deviceId" | "context" | "source">): Promise<void> {
        const given = (from.source?.context as AudioContext | undefined) ?? from.context;
        const stream = from.source ? undefined : await this.microphone(from.deviceId);
        let context = given ?? this.ownContext(48000);
        await context.audioWorklet.addModule(workletUrl());
        let source = from.source;
        if (stream) {
            try {
                source = new MediaStreamAudioSourceNode(context, { mediaStream: stream });
            } catch (error) {
                // Some browsers take a microphone only at its own rate.
                if (given) throw error;
                context = this.ownContext(undefined);
                await context.audioWorklet.addModule(workletUrl());
                source = new MediaStreamAudioSourceNode(context, { mediaStream: stream });
            }
        }
        const settings = (stream?.getAudioTracks()[0]!.getSettings() ?? {}) as { channelCount?: number };
        const channels = settings.channelCount ?? source!.channelCount;
        this.connect(context, source!, {
            ...config,
            sampleRate: context.sampleRate,
            channels: Math.min(Math.max(channels, 1), mostChannels),
        });
        this.hindrance = this.hindrance || rateProblem(context.sampleRate);
        this.watch(context);
    }

    private async microphone(deviceId: string | undefined): Promise<MediaStream> {
        if (!navigator.mediaDevices?.getUserMedia) {
            throw new SorvelError("pages have a microphone only on https, localhost or as a file");
        }
        const audio = { ...processing, ...(deviceId === undefined ? {} : { deviceId: { exact: deviceId } }) };
        const stream = await navigator.mediaDevices.getUserMedia({ audio });
        this.ends.push(() => stream.getTracks().forEach((track) => track.stop()));
        const track = stream.getAudioTracks()[0]!;
        this.hindrance = processingProblem(track.getSettings()) || rateProblem(track.getSettings().sampleRate);
        track.onended = () => this.end("lost", "The microphone went away, or its permission.");
        return stream;
    }

    private ownContext(sampleRate: number | undefined): AudioContext {
        const context = new AudioContext(sampleRate === undefined ? {} : { sampleRate });
        this.ends.push(() => void context.close());
        return context;
    }

    private connect(context: AudioContext, source: AudioNode, processorOptions: WorkletOptions): void {
        const node = new AudioWorkletNode(context, "sorvel-listener", {
            numberOfInputs: 1,
            numberOfOutputs: 1, // silent; what leads nowhere is not processed everywhere
            channelCount: processorOptions.channels,
            channelCountMode: "explicit",
            channelInterpretation: "discrete", // a mean of two microphones cancels: each is handed over
            processorOptions,
        });
        const fail = (reason: string) => this.end("lost", `Listening failed: ${reason}.`);
        node.port.onmessage = ({ data }: MessageEvent<FromWorklet>) => {
            if ("failed" in data) fail(data.failed);
            else if (this.isGoing) this.onText?.(data.heard.text, data.heard);
        };
        node.onprocessorerror = () => fail("the audio thread reports an error");
        this.level = new BandMeter(context);
        source.connect(this.level.node);
        source.connect(node);
        node.connect(context.destination);
        this.ends.push(() => {
            node.port.postMessage("stop");
            source.disconnect(this.level!.node);
            source.disconnect(node);
            node.disconnect();
        });
    }

    private watch(context: AudioContext): void {
        const look = () => {
            if (context.state === "closed") return this.end("lost", "The AudioContext was closed.");
            if (context.state !== "running") {
                return this.become("waiting", "The browser holds the sound back: click or press a key on the page.");
            }
            this.become("listening", this.hindrance || this.level!.look());
        };
        const timer = setInterval(look, look_ms);
        context.addEventListener("statechange", look);
        this.ends.push(() => {
            clearInterval(timer);
            context.removeEventListener("statechange", look);
        });
        void context.resume(); // settled no sooner than the browser allows it
        look();
    }

    private get isGoing(): boolean {
        return this.now.state !== "stopped" && this.now.state !== "lost";
    }

    private end(state: "stopped" | "lost", problem: string): void {
        if (!this.isGoing) return;
        this.become(state, problem);
        for (let end; (end = this.ends.pop()); ) end();
    }

    private become(state: StateName, problem: string): void {
        if (state === this.now.state && problem === this.now.problem) return;
        this.now = { state, problem };
        this.onState?.({ ...this.now });
    }
}

/** What the browser keeps on although it was asked not to. */
export function processingProblem(settings: MediaTrackSettings): string {
    const on = (Object.keys(processing) as Array<keyof typeof processing>)
        .filter((name) => (settings as Record<string, unknown>)[name]) // some browsers tell a kind instead of true
        .map((name) => processingNames[name]);
    if (on.length === 0) return "";
    return `The browser keeps ${on.join(" and ")} on, which removes sound above the voice: use another browser or `
        + "microphone.";
}

export function rateProblem(rate: number | undefined): string {
    if (rate === undefined || rate >= 44100) return "";
    return `The microphone samples at ${rate} Hz, and only 44100 Hz or more hold the band: choose another one (headsets `
        + "by radio go down to 16000 Hz while they are a microphone).";
}

function reasonOf(error: unknown): string {
    const { name, message } = error as Error;
    if (name === "NotAllowedError") return "the microphone is not allowed: allow it for this page in the browser";
    if (name === "NotFoundError") return "there is no microphone: connect one";
    if (name === "NotReadableError") return "the microphone cannot be opened: another program may hold it";
    if (name === "OverconstrainedError") return "there is no microphone with this deviceId: see enumerateDevices";
    return `listening could not begin: ${message}`;
}
