declare module "*.wasm" {
    const bytes: Uint8Array;
    export default bytes;
}
declare module "*/sorvel-worklet.js" {
    const dataUrl: string;
    export default dataUrl;
}
