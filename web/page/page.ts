/** The page: a listener and a sender with their controls, all in one file. */
import { Sorvel, type Heard, type Listener, type Quality, type ReceiverName, type State } from "../src/sorvel.js";
import wasm from "../dist/sorvel.wasm";
import worklet from "../dist/sorvel-worklet.js";
import { drawSpectrum } from "./spectrum.js";

Sorvel.setAssets({ wasm, worklet });

const element = <Kind extends HTMLElement>(id: string) => document.getElementById(id) as Kind;
const prefix = element<HTMLInputElement>("prefix"), receiver = element<HTMLSelectElement>("receiver");
const toggle = element<HTMLButtonElement>("toggle"), stateLine = element("state"), problemLine = element("problem");
const level = element<HTMLMeterElement>("level"), levelText = element("level-text");
const spectrum = element<HTMLCanvasElement>("spectrum");
const heardList = element("heard"), none = element("none"), file = element<HTMLInputElement>("file");
const text = element<HTMLInputElement>("text"), volume = element<HTMLInputElement>("volume");
const sending = element("sending");

let listener: Listener | undefined;
let isChanging = false; // the button stays enabled meanwhile: a disabled one would lose the focus

const stateTexts: Record<State["state"], string> = {
    opening: "Opening the microphone …",
    listening: "Listening.",
    waiting: "Waiting.",
    lost: "Listening has ended.",
    stopped: "Not listening.",
};

function showState(name: string, line: string, problem: string): void {
    stateLine.dataset["state"] = name;
    if (stateLine.textContent !== line) stateLine.textContent = line;
    problemLine.hidden = problem === "";
    problemLine.textContent = problem;
}

function onState({ state, problem }: State): void {
    showState(state, stateTexts[state], problem);
    if (state === "lost") showStopped();
}

function showStopped(): void {
    listener = undefined;
    toggle.textContent = "Start listening";
    delete toggle.dataset["on"];
    prefix.disabled = receiver.disabled = false;
    level.value = level.min;
    levelText.textContent = "–";
    spectrum.setAttribute("aria-label", "Spectrum from 16 to 21 kHz: not listening");
    drawSpectrum(spectrum);
}

async function start(): Promise<void> {
    try {
        const made = await Sorvel.listen({
            prefix: prefix.value,
            receiver: receiver.value as ReceiverName,
            onText: (_, heard) => showHeard(heard, new Date().toLocaleTimeString()),
            onState,
        });
        if (made.state.state === "lost") return;
        listener = made;
        toggle.textContent = "Stop listening";
        toggle.dataset["on"] = "";
        prefix.disabled = receiver.disabled = true;
        requestAnimationFrame(drawNext);
    } catch (error) {
        showState("failed", "Not listening.", (error as Error).message);
    }
}

async function stop(): Promise<void> {
    await listener?.stop();
    showStopped();
}

// People who asked for less motion get two pictures a second; the numbers come as often to everyone.
const calm = matchMedia("(prefers-reduced-motion: reduce)");
let lastPicture = 0, lastNumber = 0;

function drawNext(now: number): void {
    if (!listener) return;
    if (now - lastPicture >= (calm.matches ? 500 : 30)) {
        lastPicture = now;
        drawSpectrum(spectrum, listener.meter);
    }
    if (now - lastNumber >= 500) {
        lastNumber = now;
        const db = listener.meter.level();
        const words = Number.isFinite(db) ? `${Math.round(db)} dBFS`.replace("-", "−") : "none";
        level.value = Math.max(db, level.min);
        levelText.textContent = words;
        spectrum.setAttribute("aria-label", `Spectrum from 16 to 21 kHz; level of the band: ${words}`);
    }
    requestAnimationFrame(drawNext);
}

function showHeard(heard: Heard, when: string): void {
    none.hidden = true;
    const item = document.createElement("li");
    const part = (kind: string, content: string) => {
        const span = document.createElement("span");
        span.className = kind;
        span.textContent = content;
        item.append(span, " ");
    };
    part("text", heard.text);
    const quality = heard.quality;
    part("how", when + (quality ? wordsOf(quality) : ""));
    heardList.prepend(item);
    while (heardList.childElementCount > 200) heardList.lastElementChild!.remove();
}

function wordsOf({ snrDb, approach }: Quality): string {
    const speed = Math.round(10 * Math.abs(approach)) / 10;
    const motion = speed === 0 ? "" : `, ${approach > 0 ? "coming" : "going"} at ${speed} m/s`;
    return `, signal to noise ${Math.round(snrDb)} dB${motion}`.replace("-", "−");
}

async function search(recording: File): Promise<void> {
    none.hidden = false;
    none.textContent = `Searching ${recording.name} …`;
    try {
        const context = new OfflineAudioContext(1, 1, 48000);
        const sound = await context.decodeAudioData(await recording.arrayBuffer());
        const heard = await Sorvel.decode(sound, { prefix: prefix.value, receiver: receiver.value as ReceiverName });
        for (const one of heard) showHeard(one, `${recording.name}, ${one.endSeconds.toFixed(1)} s`);
        none.hidden = heard.length > 0;
        none.textContent = `There is no text in ${recording.name}.`;
    } catch (error) {
        const isFormat = (error as Error).name === "EncodingError";
        none.textContent = isFormat ? `${recording.name} is no sound that this browser reads.` : (error as Error).message;
    }
}

let isSending = false;

async function sendText(): Promise<void> {
    if (isSending) return;
    isSending = true;
    sending.textContent = `Sending “${text.value}” …`;
    try {
        await Sorvel.send(text.value, { volume: volume.valueAsNumber });
        sending.textContent = `Sent “${text.value}”.`;
    } catch (error) {
        sending.textContent = `Not sent: ${(error as Error).message}`;
    } finally {
        isSending = false;
    }
}

element("listen").addEventListener("submit", (event) => {
    event.preventDefault();
    if (isChanging) return;
    isChanging = true;
    void (listener ? stop() : start()).finally(() => (isChanging = false));
});
element("send").addEventListener("submit", (event) => {
    event.preventDefault();
    void sendText();
});
text.addEventListener("input", () => {
    const lower = text.value.toLowerCase();
    if (lower !== text.value) text.value = lower;
});
volume.addEventListener("input", () => (element("volume-text").textContent = `${volume.value} %`));
file.addEventListener("change", () => {
    if (file.files?.[0]) void search(file.files[0]);
});
addEventListener("resize", () => drawSpectrum(spectrum, listener?.meter));
drawSpectrum(spectrum);
element("version").textContent = `Version ${await Sorvel.version()}`;
