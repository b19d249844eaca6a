// The page and the module in Chromium, whose microphone hears files that the command made.
import assert from "node:assert/strict";
import { mkdirSync } from "node:fs";
import { fileURLToPath } from "node:url";
import { test } from "node:test";
import { serve } from "../serve.mjs";
import { becomes, browser, recording, run, temporaryFolder } from "./support.mjs";

const pageFile = new URL("../dist/sorvel.html", import.meta.url).href;
const pictures = fileURLToPath(new URL("../../build/web-pictures/", import.meta.url));
mkdirSync(pictures, { recursive: true });

const phone = { width: 390, height: 844 }, desktop = { width: 1280, height: 800 };

async function served(context) {
    const server = await serve(0);
    context.after(() => server.close());
    return `http://127.0.0.1:${server.address().port}/`;
}

/** A page that fails the test with any error of its own. */
async function open(context, made, address, options = {}) {
    const page = await made.newPage(options);
    const errors = [];
    page.on("pageerror", (error) => errors.push(String(error)));
    page.on("console", (message) => message.type() === "error" && errors.push(message.text()));
    context.after(() => assert.deepEqual(errors, []));
    await page.goto(address);
    return page;
}

/** Each with room for the page to tell what it knows: no scrolling sideways, no control too small to touch. */
async function assertFits(page) {
    const faults = await page.evaluate(() => {
        const found = [];
        if (document.documentElement.scrollWidth > innerWidth) found.push("scrolls sideways");
        for (const control of document.querySelectorAll("button, input, select")) {
            if (control.getBoundingClientRect().height < 43) found.push(`${control.id} is too low`);
        }
        return found;
    });
    assert.deepEqual(faults, []);
}

test("the page as a file hears 44.1 kHz on a phone, and is driven by keys", async (context) => {
    const file = await recording(temporaryFolder(context), "acme_44", 44100);
    const made = await browser(context, { fakeSound: file });
    const page = await open(context, made, pageFile, { viewport: phone, deviceScaleFactor: 2 });
    await page.screenshot({ path: `${pictures}phone-start.png`, fullPage: true });
    await assertFits(page);

    // Each control has a name, in the order in which the tabulator key comes to it.
    for (const [role, name] of [["textbox", "Prefix"], ["combobox", "Receiver"], ["button", "Start listening"],
        ["log", "Heard"]]) {
        await page.keyboard.press("Tab");
        assert.ok(await page.getByRole(role, { name }).evaluate((it) => it === document.activeElement), name);
        if (name === "Prefix") await page.keyboard.type("ACME");
    }
    await page.keyboard.press("Shift+Tab");
    await page.keyboard.press("Enter");
    await page.getByRole("button", { name: "Stop listening" }).waitFor();
    await page.getByRole("log", { name: "Heard" }).getByText("acme_44").first().waitFor({ timeout: 25000 });
    assert.equal(await page.getByRole("status").first().textContent(), "Listening.");
    await becomes(async () => /level of the band: −\d+ dBFS/.test(
        await page.getByRole("img", { name: /Spectrum/ }).getAttribute("aria-label")));
    assert.equal(await page.getByRole("alert").count(), 0); // nothing is wrong
    await page.screenshot({ path: `${pictures}phone-heard.png`, fullPage: true });
    await assertFits(page);

    await page.keyboard.press("Enter");
    await page.getByRole("button", { name: "Start listening" }).waitFor();
});

test("the served page hears 48 kHz with the classic receiver; a recording is searched", async (context) => {
    const folder = temporaryFolder(context);
    const made = await browser(context, { fakeSound: await recording(folder, "acme_48", 48000) });
    const page = await open(context, made, await served(context), { viewport: desktop, colorScheme: "dark" });
    await page.getByLabel("Receiver").selectOption("classic");
    await page.getByRole("button", { name: "Start listening" }).click();
    const heard = page.getByRole("log", { name: "Heard" });
    await heard.getByText("acme_48").first().waitFor({ timeout: 25000 });
    const flac = `${folder}/other.flac`;
    await run("sox", [await recording(folder, "from file", 44100), flac]);
    await page.getByLabel("A recording to search for texts").setInputFiles(flac);
    await heard.getByText("from file").waitFor();
    await page.screenshot({ path: `${pictures}desktop-dark.png` });
    await assertFits(page);
    await page.getByLabel("A recording to search for texts").setInputFiles(fileURLToPath(import.meta.url));
    await page.getByText("browser.test.mjs is no sound that this browser reads.").waitFor();
});

test("says why nothing will be heard, and what to do", async (context) => {
    const folder = temporaryFolder(context);
    // A headset's sound: nothing above 8 kHz, as noise.
    await run("sox", ["-n", "-r", "48000", "-e", "float", "-b", "32", `${folder}/voice.wav`, "synth", "20", "whitenoise", "vol", "0.1",
        "sinc", "-a", "150", "-7000"]);
    const made = await browser(context, { fakeSound: `${folder}/voice.wav` });
    const page = await open(context, made, pageFile, { viewport: desktop });
    await page.getByRole("button", { name: "Start listening" }).click();
    await page.getByRole("alert").getByText(/nothing from 18 to 19.5 kHz/).waitFor({ timeout: 20000 });
    await page.screenshot({ path: `${pictures}desktop-deaf.png` });
    await assertFits(page);
    await page.getByRole("button", { name: "Stop listening" }).click();

    // A browser that processes voices whatever is wished.
    await page.evaluate(() => {
        MediaStreamTrack.prototype.getSettings = () => ({ echoCancellation: true, noiseSuppression: true, channelCount: 1 });
    });
    await page.getByRole("button", { name: "Start listening" }).click();
    await page.getByRole("alert").getByText(/keeps echo cancellation and noise suppression on/).waitFor();
    await page.getByRole("button", { name: "Stop listening" }).click();

    for (const [name, message] of [["NotAllowedError", /is not allowed/], ["NotFoundError", /there is no microphone/]]) {
        await page.evaluate((kind) => {
            navigator.mediaDevices.getUserMedia = async () => {
                throw new DOMException("", kind);
            };
        }, name);
        await page.getByRole("button", { name: "Start listening" }).click();
        await page.getByRole("alert").getByText(message).waitFor();
    }
    await page.getByLabel("Prefix").fill("ä");
    await page.getByRole("button", { name: "Start listening" }).click();
    await page.getByRole("alert").getByText(/can begin with this prefix/).waitFor();
});

test("the module in a page: states, decoding through OfflineAudioContext, wrong types", async (context) => {
    const folder = temporaryFolder(context);
    const made = await browser(context, { fakeSound: await recording(folder, "acme_1", 48000) });
    const address = await served(context);
    const page = await open(context, made, address);
    const told = await page.evaluate(async () => {
        const { Sorvel } = await import("/sorvel.js");
        const states = [], texts = [];
        const asked = [];
        const real = navigator.mediaDevices.getUserMedia.bind(navigator.mediaDevices);
        navigator.mediaDevices.getUserMedia = (wish) => (asked.push(wish), real(wish));
        const context = new AudioContext({ sampleRate: 48000 });
        const listener = await Sorvel.listen({
            context, prefix: "acme", receiver: "deep", onText: (text, { quality }) => texts.push([text, quality.snrDb > 20]),
            onState: ({ state, problem }) => states.push(problem ? `${state}: ${problem}` : state),
        });
        while (texts.length === 0) await new Promise((resolve) => setTimeout(resolve, 50));
        await context.suspend();
        await new Promise((resolve) => setTimeout(resolve, 50));
        await listener.stop();
        await listener.stop();
        return { states, texts: texts.slice(0, 1), asked, context: context.state };
    });
    assert.deepEqual(told.texts, [["acme_1", true]]);
    assert.deepEqual(told.asked, [{ audio: { echoCancellation: false, noiseSuppression: false, autoGainControl: false } }]);
    assert.equal(told.states[0], "opening");
    assert.ok(told.states.includes("listening"), String(told.states));
    assert.match(told.states.at(-2), /^waiting: The browser holds the sound back/);
    assert.equal(told.states.at(-1), "stopped");
    assert.notEqual(told.context, "closed"); // it is the caller's

    const decoded = await page.evaluate(async () => {
        const { Sorvel } = await import("/sorvel.js");
        const samples = await Sorvel.waveform("acme_1234");
        const offline = new OfflineAudioContext(1, samples.length, 48000);
        const buffer = offline.createBuffer(1, samples.length, 48000);
        buffer.copyToChannel(samples, 0);
        const source = new AudioBufferSourceNode(offline, { buffer });
        source.connect(offline.destination);
        source.start();
        const heard = await Sorvel.decode(await offline.startRendering(), { prefix: "acme" });
        return heard.map(({ text }) => text);
    });
    assert.deepEqual(decoded, ["acme_1234"]);

    const refused = await page.evaluate(async () => {
        const { Sorvel } = await import("/sorvel.js");
        const lines = [];
        for (const options of [5, null, { prefix: 5 }, { receiver: "best" }, { onText: "log" }, { onState: {} },
            { deviceId: 1 }, { context: new OfflineAudioContext(1, 1, 48000) }, { source: {} }, { deviceId: "none" }]) {
            lines.push(await Sorvel.listen(options).then(() => "listens", (error) => `${error.name}: ${error.message}`));
        }
        lines.push(await Sorvel.send("\u00c4").then(() => "sends", (error) => `${error.name}: ${error.message}`));
        return lines;
    });
    const expected = [/^TypeError: options .* not number/, /not null/, /prefix .* not number/, /"classic" or "deep"/,
        /onText .* not string/, /onState .* not Object/, /deviceId .* not number/, /not OfflineAudioContext/,
        /source has to be an AudioNode/, /^SorvelError: there is no microphone with this deviceId/,
        /^SorvelError: a character cannot be sent/];
    refused.forEach((line, i) => assert.match(line, expected[i]));
});
