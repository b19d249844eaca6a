// node decode.mjs RECORDING.wav [PREFIX] prints the texts in a recording.
import { readFileSync } from "node:fs";
import { Sorvel } from "sorvel";

const [file, prefix] = process.argv.slice(2);
const sound = Sorvel.readWav(readFileSync(file));
for (const { text, endSeconds } of await Sorvel.decode(sound, { prefix, receiver: "deep" })) {
    console.log(`${endSeconds.toFixed(2)} s: ${text}`);
}
