import { execFile, spawn } from "node:child_process";
import { mkdtempSync, mkdirSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { promisify } from "node:util";
import { chromium } from "playwright-core";

export const run = promisify(execFile);

/** The command of this project, with which the module has to agree. */
export const command = process.env.SORVEL ?? "sorvel";

export function temporaryFolder(context) {
    const folder = mkdtempSync(join(tmpdir(), "sorvel-web-"));
    context.after(() => rmSync(folder, { recursive: true, force: true, maxRetries: 5 }));
    return folder;
}

/** A WAV file that the command made. */
export async function recording(folder, text, rate) {
    const file = join(folder, `${text}-${rate}.wav`);
    await run(command, ["send", text, "-o", file, "--rate", String(rate)]);
    return file;
}

/** Debian's Chromium, with no screen; `fakeSound` is what its only microphone hears, over and over. */
export async function browser(context, { fakeSound, env = {} } = {}) {
    const args = ["--no-sandbox", "--use-fake-ui-for-media-stream", "--autoplay-policy=no-user-gesture-required"];
    if (fakeSound) args.push("--use-fake-device-for-media-stream", `--use-file-for-fake-audio-capture=${fakeSound}`);
    const made = await chromium.launch({
        executablePath: "/usr/bin/chromium", args, ignoreDefaultArgs: ["--mute-audio"], env: { ...process.env, ...env },
    });
    context.after(() => made.close());
    return made;
}

/** Waits until `condition` gives something; fails after `seconds`. */
export async function becomes(condition, seconds = 25) {
    for (const end = Date.now() + 1000 * seconds; ; ) {
        const value = await condition();
        if (value) return value;
        if (Date.now() > end) throw new Error(`did not become so within ${seconds} s: ${condition}`);
        await new Promise((resolve) => setTimeout(resolve, 50));
    }
}

/** A program of the test's, ended with it. */
export function start(context, program, args, env = {}) {
    const process_ = spawn(program, args, { env: { ...process.env, ...env }, stdio: ["ignore", "pipe", "pipe"] });
    let output = "";
    for (const stream of [process_.stdout, process_.stderr]) stream.on("data", (data) => (output += data));
    const ended = new Promise((resolve) => process_.on("exit", resolve));
    context.after(() => {
        process_.kill("SIGKILL");
        return ended;
    });
    return { output: () => output, ended };
}

/**
 * A sound server of the test's own. What is played into its only sink, "air", is what its only microphone hears: the
 * monitor once more as a source, as browsers do not show monitors.
 *
 * @return the environment that leads to it
 */
export async function soundServer(context, rate = 48000) {
    const folder = temporaryFolder(context);
    mkdirSync(join(folder, "pulse"), { mode: 0o700 });
    const socket = join(folder, "pulse", "native");
    const env = {
        PULSE_SERVER: `unix:${socket}`, PULSE_RUNTIME_PATH: join(folder, "pulse"), XDG_RUNTIME_DIR: folder,
        XDG_CONFIG_HOME: join(folder, "config"), HOME: folder, DBUS_SESSION_BUS_ADDRESS: `unix:path=${folder}/bus`,
    };
    const server = start(context, "pulseaudio", ["-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
        "-L", `module-native-protocol-unix auth-anonymous=1 socket=${socket}`,
        "-L", `module-null-sink sink_name=air channels=1 format=float32le rate=${rate}`,
        "-L", "module-remap-source source_name=microphone master=air.monitor channels=1"], env);
    const ready = () => run("pactl", ["info"], { env: { ...process.env, ...env } }).then(() => true, () => false);
    await becomes(ready).catch(() => {
        throw new Error(`the sound server does not start:\n${server.output()}`);
    });
    await run("pactl", ["set-default-source", "microphone"], { env: { ...process.env, ...env } });
    return env;
}
