// Serves the page and the module on this machine alone: serve.mjs [PORT], 0 for any free one.
import { createServer } from "node:http";
import { readFile } from "node:fs/promises";
import { extname, normalize } from "node:path";
import { fileURLToPath } from "node:url";

const types = {
    ".html": "text/html; charset=utf-8", ".js": "text/javascript; charset=utf-8", ".wasm": "application/wasm",
};

/** @return the server, once it listens on 127.0.0.1 */
export function serve(port) {
    const folder = fileURLToPath(new URL("dist/", import.meta.url));
    const server = createServer(async (request, response) => {
        try {
            const path = normalize(decodeURIComponent(new URL(request.url, "http://localhost").pathname));
            const file = path === "/" ? "/sorvel.html" : path;
            const type = types[extname(file)];
            if (!type) throw new Error("not one of ours");
            const body = await readFile(folder + file); // absolute and normalised: nothing above the folder
            response.writeHead(200, { "content-type": type, "cache-control": "no-cache" }).end(body);
        } catch {
            response.writeHead(404, { "content-type": "text/plain" }).end("there is no such file\n");
        }
    });
    return new Promise((resolve, reject) => {
        server.once("error", reject).listen(port, "127.0.0.1", () => resolve(server));
    });
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
    const port = Number(process.argv[2] ?? 8765);
    try {
        const server = await serve(port);
        console.log(`http://127.0.0.1:${server.address().port}/`);
    } catch (error) {
        console.error(`cannot serve on port ${port}: ${error.message}; give another: node web/serve.mjs 9000`);
        process.exitCode = 1;
    }
}
