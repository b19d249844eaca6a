/** Checks of what callers hand over: one line that says what was wrong. */
import type { ReceiverName } from "./receiver.js";

export function kindOf(value: unknown): string {
    if (value === null) return "null";
    return typeof value === "object" ? (value as object).constructor?.name ?? "object" : typeof value;
}

export function wrong(name: string, wanted: string, value: unknown): never {
    throw new TypeError(`${name} has to be ${wanted}, not ${kindOf(value)}`);
}

export function optionsOf<Options extends object>(value: Options | undefined): Options {
    if (value === undefined) return {} as Options;
    return typeof value === "object" && value !== null ? value : wrong("options", "an object", value);
}

export function textOf(name: string, value: unknown): string {
    return typeof value === "string" ? value : wrong(name, "a string", value);
}

export function functionOf<Call>(name: string, value: Call | undefined): Call | undefined {
    return value === undefined || typeof value === "function" ? value : wrong(name, "a function", value);
}

export function receiverOf(value: unknown = "classic"): ReceiverName {
    if (value === "classic" || value === "deep") return value;
    if (typeof value !== "string") return wrong("receiver", '"classic" or "deep"', value);
    throw new RangeError(`receiver has to be "classic" or "deep", not "${value}"`);
}

export function numberOf(name: string, value: unknown, lowest: number, highest: number): number {
    if (typeof value !== "number") return wrong(name, "a number", value);
    if (value >= lowest && value <= highest) return value;
    throw new RangeError(`${name} has to be from ${lowest} to ${highest}, not ${value}`);
}
