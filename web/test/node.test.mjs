// The module in node: against the command's files, and what may be handed to it.
import assert from "node:assert/strict";
import { cpSync, mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { fileURLToPath } from "node:url";
import { test } from "node:test";
import { Sorvel, SorvelError } from "../dist/sorvel.js";
import { command, recording, run, temporaryFolder } from "./support.mjs";

const web = fileURLToPath(new URL("..", import.meta.url));

function soundOf(samples, sampleRate, channels = 1) {
    const silent = new Float32Array(samples.length);
    const data = Array.from({ length: channels }, (_, channel) => (channel === channels - 1 ? samples : silent));
    return { sampleRate, length: samples.length, numberOfChannels: channels, getChannelData: (i) => data[i] };
}

/** 16 bits, mono. */
function wavOf(samples, rate) {
    const file = Buffer.alloc(44 + 2 * samples.length);
    file.write("RIFF", 0), file.writeUInt32LE(file.length - 8, 4), file.write("WAVEfmt ", 8), file.writeUInt32LE(16, 16);
    file.writeUInt16LE(1, 20), file.writeUInt16LE(1, 22), file.writeUInt32LE(rate, 24), file.writeUInt32LE(2 * rate, 28);
    file.writeUInt16LE(2, 32), file.writeUInt16LE(16, 34), file.write("data", 36);
    file.writeUInt32LE(2 * samples.length, 40);
    samples.forEach((sample, i) => file.writeInt16LE(Math.round(32767 * sample), 44 + 2 * i));
    return file;
}

test("hears what the command sends, and the command hears what it sends", async (context) => {
    const folder = temporaryFolder(context);
    for (const rate of [44100, 48000]) {
        const sound = Sorvel.readWav(readFileSync(await recording(folder, "acme_1234", rate)));
        assert.equal(sound.sampleRate, rate);
        for (const receiver of ["classic", "deep"]) {
            const heard = await Sorvel.decode(sound, { prefix: "ACME", receiver });
            assert.deepEqual(heard.map(({ text }) => text), ["acme_1234"], `${receiver} at ${rate}`);
            assert.equal(heard[0].quality !== undefined, receiver === "deep");
            assert.deepEqual(await Sorvel.decode(sound, { prefix: "other", receiver }), []);
        }
        const file = join(folder, "module.wav");
        writeFileSync(file, wavOf(await Sorvel.waveform("from_module", { sampleRate: rate, volume: 20 }), rate));
        const { stdout } = await run(command, ["listen", file, "--prefix", "from"]);
        assert.equal(stdout, "from_module\n");
    }
});

test("hears the one channel of several that holds the sound, to the last sample", async () => {
    const samples = await Sorvel.waveform("abc 123", { sampleRate: 96000 });
    assert.equal(samples.length, 3.264 * 96000);
    assert.ok(samples.every((sample) => Math.abs(sample) <= 0.5));
    const [heard] = await Sorvel.decode(soundOf(samples, 96000, 3));
    assert.equal(heard.text, "abc 123");
    // Parity comes last: the text can be whole up to two of the 34 chunks before.
    assert.ok(heard.endSeconds > 3.05 && heard.endSeconds < 3.29, `${heard.endSeconds}`);
});

test("reads WAV files of each format alike, and refuses what is none", async (context) => {
    const folder = temporaryFolder(context);
    const file = await recording(folder, "acme_1234", 48000);
    const plain = Sorvel.readWav(readFileSync(file)).getChannelData(0);
    for (const [bits, encoding] of [[24, "signed"], [32, "signed"], [32, "float"], [64, "float"]]) {
        const other = join(folder, "other.wav");
        await run("sox", ["-D", file, "-b", `${bits}`, "-e", encoding, "-c", "2", other]);
        const read = Sorvel.readWav(readFileSync(other));
        assert.equal(read.numberOfChannels, 2);
        assert.deepEqual(read.getChannelData(1), plain, `${bits} ${encoding}`);
    }
    const bytes = readFileSync(file);
    assert.ok(Sorvel.readWav(bytes.subarray(0, 1001)).length > 0); // cut off within a sample
    for (const length of [0, 11, 20, 36, 43]) {
        assert.throws(() => Sorvel.readWav(bytes.subarray(0, length)), SorvelError, `${length} bytes`);
    }
    assert.throws(() => Sorvel.readWav("name.wav"), /file has to be an ArrayBuffer or Uint8Array, not string/);
});

test("says what is wrong with what it is given", async () => {
    const sound = soundOf(new Float32Array(10), 48000);
    const cases = [
        [() => Sorvel.waveform(), /text has to be a string, not undefined/],
        [() => Sorvel.waveform(1234), /text has to be a string, not number/],
        [() => Sorvel.waveform(""), /1 to 15 characters/],
        [() => Sorvel.waveform("sixteen_letters_"), /1 to 15 characters/],
        [() => Sorvel.waveform("a".repeat(1e6)), /1 to 15 characters/],
        ...["Acme", "\u00e4", "a\0b", "\u{1f600}", "a\u0161"].map(
            (text) => [() => Sorvel.waveform(text), /a character cannot be sent/]),
        [() => Sorvel.waveform("a", 48000), /options has to be an object, not number/],
        [() => Sorvel.waveform("a", { sampleRate: "48000" }), /sampleRate has to be a number, not string/],
        ...[NaN, -1, 8000, Infinity].map(
            (rate) => [() => Sorvel.waveform("a", { sampleRate: rate }), /sampleRate has to be from 44100 to 384000/]),
        [() => Sorvel.waveform("a", { volume: 101 }), /volume has to be from 1 to 100, not 101/],
        [() => Sorvel.decode(), /sound has to be an AudioBuffer.*, not undefined/],
        [() => Sorvel.decode(null), /not null/],
        [() => Sorvel.decode(new Float32Array(5)), /not Float32Array/],
        [() => Sorvel.decode({ ...sound, sampleRate: 4000 }), /sampleRate has to be from 8000/],
        [() => Sorvel.decode({ ...sound, sampleRate: 8000 }, { receiver: "deep" }), /sampleRate has to be from 32000/],
        [() => Sorvel.decode({ ...sound, numberOfChannels: 0 }), /numberOfChannels has to be from 1/],
        [() => Sorvel.decode({ ...sound, length: 11 }), /has to have 11 samples/],
        [() => Sorvel.decode({ ...sound, getChannelData: () => [1, 2] }), /has to be a Float32Array, not Array/],
        [() => Sorvel.decode(sound, { prefix: 5 }), /prefix has to be a string, not number/],
        ...["sixteen_letters_", "a\0", "\u00e9"].map(
            (prefix) => [() => Sorvel.decode(sound, { prefix }), /can begin with this prefix/]),
        [() => Sorvel.decode(sound, { receiver: "best" }), /receiver has to be "classic" or "deep", not "best"/],
        [() => Sorvel.decode(sound, { receiver: 1 }), /receiver has to be "classic" or "deep", not number/],
        [() => Sorvel.listen({}), /no Web Audio here/],
        [() => Sorvel.send("acme"), /no Web Audio here/],
        [() => Sorvel.send("acme", { context: {} }), /context has to be an AudioContext, not Object/],
    ];
    for (const [call, message] of cases) await assert.rejects(call, message, String(call));
});

test("sound that is no number is silence, and hurts nothing that follows", async () => {
    const samples = await Sorvel.waveform("acme_1234");
    const bad = new Float32Array(48000);
    [NaN, Infinity, -Infinity, 3e38].forEach((value, i) => bad.fill(value, 9000 * i, 9000 * (i + 1)));
    for (const receiver of ["classic", "deep"]) {
        const all = new Float32Array([...bad, ...samples]);
        const heard = await Sorvel.decode(soundOf(all, 48000), { receiver });
        assert.deepEqual(heard.map(({ text }) => text), ["acme_1234"], receiver);
    }
});

test("memory does not grow while it hears: the audio thread's view of it stays", async () => {
    const module = await WebAssembly.compile(readFileSync(join(web, "dist", "sorvel.wasm")));
    const sent = await Sorvel.waveform("acme_1234");
    for (const receiver of [0, 1]) {
        const wasm = new WebAssembly.Instance(module, {
            env: { emscripten_notify_memory_growth() {} }, wasi_snapshot_preview1: { proc_exit() {} },
        }).exports;
        wasm._initialize();
        const prefix = wasm.room(1);
        new Uint8Array(wasm.memory.buffer)[prefix] = 0;
        assert.equal(wasm.listen(48000, 1, receiver, prefix), 0);
        const block = wasm.room(4 * 1024);
        const view = new Float32Array(wasm.memory.buffer, block, 1024);
        let heard = 0;
        for (let from = 0; from < sent.length + 48000; from += 1024) {
            for (let i = 0; i < view.length; ++i) view[i] = (sent[from + i] ?? 0) + 0.01 * Math.sin((from + i) ** 2);
            assert.equal(wasm.push(block, view.length), 0);
            heard += wasm.poll();
        }
        assert.equal(heard, 1); // it did the work
        assert.equal(view.length, 1024); // a view of memory that grew has 0
    }
});

test("the packed package serves a stranger: the README's program, and his types", async (context) => {
    const folder = temporaryFolder(context);
    const { stdout } = await run("npm", ["pack", "--offline", "--pack-destination", folder, "--json"], { cwd: web });
    const [{ filename, files }] = JSON.parse(stdout);
    for (const needed of ["dist/sorvel.js", "dist/sorvel.wasm", "dist/sorvel-worklet.js", "LICENSE", "README.md"]) {
        assert.ok(files.some(({ path }) => path === needed), needed);
    }
    await run("tar", ["xf", filename], { cwd: folder });
    mkdirSync(join(folder, "node_modules"));
    cpSync(join(folder, "package"), join(folder, "node_modules", "sorvel"), { recursive: true });
    cpSync(join(web, "examples", "decode.mjs"), join(folder, "decode.mjs"));
    const file = await recording(folder, "acme_1234", 44100);
    const decoded = await run("node", ["decode.mjs", file, "acme"], { cwd: folder });
    assert.match(decoded.stdout, /^[\d.]+ s: acme_1234\n$/);

    cpSync(join(web, "test", "stranger.ts"), join(folder, "stranger.ts"));
    await run("tsc", ["--noEmit", "--strict", "--target", "es2021", "--module", "es2022", "--moduleResolution", "node",
        "stranger.ts"], { cwd: folder });
});
