// Through a sound server: the page and the command hear each other.
import assert from "node:assert/strict";
import { test } from "node:test";
import { becomes, browser, command, run, soundServer, start } from "./support.mjs";

const pageFile = new URL("../dist/sorvel.html", import.meta.url).href;

test("the page hears what the command plays, and the command what the page plays", async (context) => {
    const env = await soundServer(context);
    const made = await browser(context, { env });
    const page = await made.newPage();
    await page.goto(pageFile);
    await page.getByLabel("Prefix").fill("acme");
    await page.getByRole("button", { name: "Start listening" }).click();
    await page.getByRole("status").getByText("Listening.").waitFor();

    await run(command, ["send", "acme_native", "--play"], { env: { ...process.env, ...env } });
    await page.getByRole("log", { name: "Heard" }).getByText("acme_native").waitFor();

    const captures = async () => {
        const { stdout } = await run("pactl", ["list", "short", "source-outputs"], { env: { ...process.env, ...env } });
        return stdout.trim().split("\n").length;
    };
    const before = await captures();
    const native = start(context, command, ["listen", "--prefix", "acme", "--once", "--timeout", "30"], env);
    await becomes(async () => (await captures()) > before);
    await page.getByRole("textbox", { name: "Text" }).fill("Acme Page");
    await page.getByRole("button", { name: "Send" }).click();
    await page.getByText("Sent “acme page”.").waitFor();
    assert.equal(await native.ended, 0, native.output());
    assert.match(native.output(), /^acme page$/m);
    await page.getByRole("log", { name: "Heard" }).getByText("acme page").waitFor(); // and the page heard itself
});
