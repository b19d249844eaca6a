// Prints what README.md tells of sizes and speed: node bench.mjs, after `make web`.
import { readFileSync } from "node:fs";
import { gzipSync } from "node:zlib";
import { Sorvel } from "./dist/sorvel.js";

for (const name of ["sorvel.wasm", "sorvel.js", "sorvel-worklet.js", "sorvel.html"]) {
    const file = readFileSync(new URL(`dist/${name}`, import.meta.url));
    const kB = (bytes) => (bytes / 1000).toFixed(1);
    console.log(`${name}: ${kB(file.length)} kB, gzipped ${kB(gzipSync(file, { level: 9 }).length)}`);
}

const minutes = 10;
for (const sampleRate of [48000, 44100]) {
    const sent = await Sorvel.waveform("acme_1234", { sampleRate });
    const samples = new Float32Array(60 * minutes * sampleRate);
    let random = 1;
    for (let i = 0; i < samples.length; ++i) {
        random = (random * 48271) % 2147483647;
        samples[i] = 0.02 * (random / 2147483647 - 0.5);
    }
    sent.forEach((sample, i) => (samples[sampleRate + i] += 0.1 * sample));
    const sound = { sampleRate, length: samples.length, numberOfChannels: 1, getChannelData: () => samples };
    for (const receiver of ["classic", "deep"]) {
        const runs = [];
        for (let run = 0; run < 5; ++run) {
            const start = process.cpuUsage();
            const heard = await Sorvel.decode(sound, { receiver });
            if (heard.length !== 1) throw new Error(`heard ${heard.length} texts instead of 1`);
            const { user, system } = process.cpuUsage(start);
            runs.push((60e6 * minutes) / (user + system));
        }
        runs.sort((a, b) => a - b);
        console.log(`${receiver} at ${sampleRate} Hz: ${runs.map(Math.round).join(", ")} times real time`);
    }
}
