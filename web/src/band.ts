/** How much sound there is where transmissions are. */

/** Hz; all tones lie within. */
export const bandLow = 18000, bandHigh = 19500;

const fftSize = 4096;
// Sum of the squares of the analyser's window (Blackman, alpha 0.16) over its length: what it makes of power.
const windowPower = 0.42 ** 2 + 0.5 ** 2 / 2 + 0.08 ** 2 / 2;

/** Beneath this there is not even the noise that any converter has. */
const nothing_db = -125;
/** Sound below the band that is no digital silence. */
const something_db = -95;
/** Looks in a row that have to agree. */
const looks = 6;

/** Levels and spectrum of a source in a running AudioContext. */
export class BandMeter {
    /** The source passes through it unchanged. */
    readonly node: AnalyserNode;
    private readonly bins: Float32Array;
    private deafLooks = 0;
    private silentLooks = 0;

    constructor(context: BaseAudioContext) {
        this.node = new AnalyserNode(context, { fftSize, smoothingTimeConstant: 0.5 });
        this.bins = new Float32Array(this.node.frequencyBinCount);
    }

    /** Hz between two values of `spectrum`. */
    get binWidth(): number {
        return this.node.context.sampleRate / fftSize;
    }

    /** Power of each bin in dB, from 0 Hz on; -Infinity: none. The array is used anew by the next call. */
    spectrum(): Float32Array {
        this.node.getFloatFrequencyData(this.bins);
        return this.bins;
    }

    /** Power between two frequencies in dBFS: a tone of full scale has 0. -Infinity: none. */
    level(low = bandLow, high = bandHigh): number {
        const bins = this.spectrum();
        let power = 0;
        for (let bin = Math.ceil(low / this.binWidth); bin <= high / this.binWidth && bin < bins.length; ++bin) {
            power += 10 ** (bins[bin]! / 10);
        }
        return 10 * Math.log10((4 * power) / windowPower);
    }

    /**
     * Whether the band is missing in the sound; to be asked a few times a second. A microphone has noise of its own at
     * all frequencies: where there is some below and none in the band, something took it out.
     *
     * @return why nothing can be heard; empty: it can, as far as one sees
     */
    look(): string {
        const band = this.level();
        const below = this.level(300, 7500);
        this.deafLooks = band < nothing_db && below > something_db ? this.deafLooks + 1 : 0;
        this.silentLooks = band < nothing_db && below < nothing_db ? this.silentLooks + 1 : 0;
        if (this.deafLooks >= looks) {
            return "The microphone's sound has nothing from 18 to 19.5 kHz: the browser, the system or a headset "
                + "removes it. Turn off voice processing, or choose another microphone.";
        }
        if (this.silentLooks >= looks) return "No sound comes from the microphone: is it muted?";
        return "";
    }
}
