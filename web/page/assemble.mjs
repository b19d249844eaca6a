// Puts style and script into the page: assemble.mjs PAGE STYLE SCRIPT OUTPUT
import { readFileSync, writeFileSync } from "node:fs";

const [page, style, script, output] = process.argv.slice(2);
const read = (path) => readFileSync(path, "utf8").trim();
// Neither may hold what ends its element.
const script_ = read(script).replaceAll("</script", "<\\/script");
writeFileSync(output, read(page).replace("/*STYLE*/", () => read(style)).replace("/*SCRIPT*/", () => script_) + "\n");
