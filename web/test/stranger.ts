// A user's program, as the package's types have to take it; and what they have to refuse.
import { Sorvel, type Heard, type State } from "sorvel";

export async function main(buffer: AudioBuffer): Promise<string[]> {
    const listener = await Sorvel.listen({
        prefix: "acme",
        receiver: "deep",
        onText: (text: string, heard: Heard) => console.log(text.length, heard.endSeconds, heard.quality?.snrDb),
        onState: ({ state, problem }: State) => console.log(state === "listening", problem),
    });
    console.log(listener.meter.level());
    await listener.stop();
    await Sorvel.send("acme_1234", { volume: 80 });
    // @ts-expect-error: there is no such receiver
    await Sorvel.decode(buffer, { receiver: "best" });
    // @ts-expect-error: texts are strings
    await Sorvel.send(1234);
    return (await Sorvel.decode(buffer)).map(({ text }) => text);
}
