/** The two files beside this module, and how to say that they are elsewhere. */
import { SorvelError } from "./wasm.js";

export interface Assets {
    /** sorvel.wasm: its address, or what is in it. */
    wasm?: string | URL | BufferSource;
    /** sorvel-worklet.js: its address. */
    worklet?: string | URL;
}

let given: Assets = {};
let compiled: Promise<WebAssembly.Module> | undefined;

/**
 * For bundlers that move files, and pages that hold all in themselves. Without it the files lie beside this module.
 */
export function setAssets(assets: Assets): void {
    given = { ...given, ...assets };
    compiled = undefined;
}

/** Compiled once; later calls share it. */
export function wasmModule(): Promise<WebAssembly.Module> {
    compiled ??= load(given.wasm ?? new URL("sorvel.wasm", import.meta.url)).catch((error: unknown) => {
        compiled = undefined; // the next call tries anew
        throw error;
    });
    return compiled;
}

export function workletUrl(): string {
    return String(given.worklet ?? new URL("sorvel-worklet.js", import.meta.url));
}

async function load(from: string | URL | BufferSource): Promise<WebAssembly.Module> {
    if (typeof from !== "string" && !(from instanceof URL)) return WebAssembly.compile(from);
    const url = new URL(from, import.meta.url);
    if (url.protocol === "file:") {
        // Node: its fetch reads no files. Bundlers for browsers must not look for the name.
        const { readFile } = await import(/* webpackIgnore: true */ /* @vite-ignore */ "node:fs/promises" as string);
        return WebAssembly.compile(await readFile(url));
    }
    const answer = await fetch(url);
    if (!answer.ok) throw new SorvelError(`${url} could not be loaded (${answer.status}): see Sorvel.setAssets`);
    return WebAssembly.compile(await answer.arrayBuffer());
}
