import { bandHigh, bandLow, type BandMeter } from "../src/sorvel.js";

/** Hz and dB at the edges of the picture. */
const low = 16000, high = 21000, floor = -130, ceiling = -20;
const margin = { left: 44, bottom: 24 };

/** Draws the spectrum around the band; without a meter, its axes only. */
export function drawSpectrum(canvas: HTMLCanvasElement, meter?: BandMeter): void {
    const scale = devicePixelRatio || 1;
    const width = canvas.clientWidth, height = canvas.clientHeight;
    if (canvas.width !== Math.round(width * scale)) canvas.width = Math.round(width * scale);
    if (canvas.height !== Math.round(height * scale)) canvas.height = Math.round(height * scale);
    const draw = canvas.getContext("2d")!;
    draw.setTransform(scale, 0, 0, scale, 0, 0);
    draw.clearRect(0, 0, width, height);
    const x = (frequency: number) => margin.left + ((frequency - low) / (high - low)) * (width - margin.left);
    const y = (level: number) => {
        const part = (ceiling - Math.min(Math.max(level, floor), ceiling)) / (ceiling - floor);
        return 1 + part * (height - margin.bottom - 2);
    };
    drawAxes(draw, x, y);
    if (meter) drawLine(draw, meter, x, y);
}

type Place = (value: number) => number;

function colour(name: string): string {
    return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`);
}

function drawAxes(draw: CanvasRenderingContext2D, x: Place, y: Place): void {
    draw.fillStyle = colour("band");
    draw.fillRect(x(bandLow), y(ceiling), x(bandHigh) - x(bandLow), y(floor) - y(ceiling));
    draw.strokeStyle = colour("line");
    draw.fillStyle = colour("soft");
    draw.lineWidth = 1;
    draw.font = "12px system-ui, sans-serif";
    draw.textAlign = "right";
    draw.textBaseline = "middle";
    draw.beginPath();
    for (let level = -120; level <= -40; level += 20) {
        draw.moveTo(x(low), y(level));
        draw.lineTo(x(high), y(level));
        draw.fillText(`${level}`.replace("-", "−"), margin.left - 6, y(level));
    }
    draw.stroke();
    draw.fillText("dB", margin.left - 6, y(ceiling) + 8);
    draw.textBaseline = "top";
    for (let kHz = 16; kHz <= 21; ++kHz) {
        draw.textAlign = kHz === 21 ? "right" : kHz === 16 ? "left" : "center";
        draw.fillText(kHz === 16 ? "16 kHz" : `${kHz}`, x(1000 * kHz), y(floor) + 7);
    }
}

function drawLine(draw: CanvasRenderingContext2D, meter: BandMeter, x: Place, y: Place): void {
    const bins = meter.spectrum();
    draw.strokeStyle = colour("strong");
    draw.lineWidth = 1.5;
    draw.beginPath();
    for (let bin = Math.ceil(low / meter.binWidth); bin < bins.length && bin * meter.binWidth <= high; ++bin) {
        draw.lineTo(x(bin * meter.binWidth), y(bins[bin]!));
    }
    draw.stroke();
}
