// What the phone plays: to the page's audio, as a level, and as the frequencies in it.
import {bytesOf} from './events.js';

const WINDOW = 8192; // samples, for the frequencies
const LEAD = 0.08; // seconds between the first piece and its sound
const QUIET_AFTER = 600; // ms without a piece
const FLOOR = -60; // dB

let context = null;
let analyser = null;
let nextStart = 0;
let rate = 0;
let recent = new Float32Array(WINDOW); // the newest samples, both channels together
let filled = 0;
let lastPiece = 0;
let format = '';

// Only from a click: browsers want one.
export async function listen(on) {
  if (!on) {
    await context?.close();
    context = analyser = null;
    return;
  }
  context = new AudioContext();
  analyser = new AnalyserNode(context, {fftSize: 16384, smoothingTimeConstant: 0});
  analyser.connect(context.destination);
  nextStart = 0;
  await context.resume();
}

export function takePiece(piece) {
  const samples = new Int16Array(bytesOf(piece.pcm).buffer);
  const frames = Math.floor(samples.length / piece.channels);
  if (rate !== piece.rate) filled = 0;
  rate = piece.rate;
  format = `${piece.rate} Hz, ${piece.channels === 2 ? 'stereo' : 'mono'}`;
  lastPiece = performance.now();
  remember(samples, frames, piece.channels);
  if (context) play(samples, frames, piece.channels);
}

function remember(samples, frames, channels) {
  const kept = Math.min(frames, WINDOW);
  recent.copyWithin(0, kept);
  for (let frame = 0; frame < kept; ++frame) {
    let sum = 0;
    for (let channel = 0; channel < channels; ++channel) sum += samples[(frames - kept + frame) * channels + channel];
    recent[WINDOW - kept + frame] = sum / channels / 32768;
  }
  filled = Math.min(WINDOW, filled + kept);
}

function play(samples, frames, channels) {
  const buffer = context.createBuffer(channels, frames, rate);
  for (let channel = 0; channel < channels; ++channel) {
    const data = buffer.getChannelData(channel);
    for (let frame = 0; frame < frames; ++frame) data[frame] = samples[frame * channels + channel] / 32768;
  }
  const source = new AudioBufferSourceNode(context, {buffer});
  source.connect(analyser);
  if (nextStart < context.currentTime + 0.01) nextStart = context.currentTime + LEAD;
  // A page that slept has much to catch up with: it begins anew.
  if (nextStart > context.currentTime + 1) return;
  source.start(nextStart);
  nextStart += buffer.duration;
}

// {quiet, format, level (dB), frequencies (Hz, the strongest first)}
export function measure() {
  if (performance.now() - lastPiece > QUIET_AFTER) {
    filled = 0;
    return {quiet: true, format, level: FLOOR, frequencies: []};
  }
  const newest = recent.subarray(WINDOW - Math.min(filled, 2048));
  let power = 0;
  for (const sample of newest) power += sample * sample;
  const level = Math.max(FLOOR, 10 * Math.log10(power / Math.max(newest.length, 1) * 2 + 1e-12));
  return {quiet: false, format, level, frequencies: filled < WINDOW ? [] : peaks(spectrum(recent), rate)};
}

// The strongest frequency in the page's own audio, or 0.
export function heardFrequency() {
  if (!analyser) return 0;
  const levels = new Float32Array(analyser.frequencyBinCount);
  analyser.getFloatFrequencyData(levels);
  let best = 1;
  for (let bin = 1; bin < levels.length; ++bin) if (levels[bin] > levels[best]) best = bin;
  return levels[best] > -70 ? best * context.sampleRate / analyser.fftSize : 0;
}

// Magnitudes by a Fourier transform with a Hann window.
function spectrum(samples) {
  const size = samples.length;
  const real = new Float64Array(size);
  const imaginary = new Float64Array(size);
  const bits = Math.log2(size);
  for (let index = 0; index < size; ++index) {
    let reversed = 0;
    for (let bit = 0; bit < bits; ++bit) reversed |= (index >> bit & 1) << (bits - 1 - bit);
    real[reversed] = samples[index] * (0.5 - 0.5 * Math.cos(2 * Math.PI * index / size));
  }
  for (let half = 1; half < size; half *= 2) {
    for (let offset = 0; offset < half; ++offset) {
      const angle = -Math.PI * offset / half;
      const cosine = Math.cos(angle), sine = Math.sin(angle);
      for (let even = offset; even < size; even += 2 * half) {
        const odd = even + half;
        const r = real[odd] * cosine - imaginary[odd] * sine;
        const i = real[odd] * sine + imaginary[odd] * cosine;
        real[odd] = real[even] - r;
        imaginary[odd] = imaginary[even] - i;
        real[even] += r;
        imaginary[even] += i;
      }
    }
  }
  return real.subarray(0, size / 2).map((value, bin) => Math.hypot(value, imaginary[bin]));
}

// Up to three, each at least a fifth as strong as the strongest.
function peaks(magnitudes, sampleRate) {
  const found = [];
  for (let bin = 2; bin < magnitudes.length - 1; ++bin) {
    const left = magnitudes[bin - 1], top = magnitudes[bin], right = magnitudes[bin + 1];
    if (top < 8 || top < left || top <= right) continue;
    const shift = 0.5 * Math.log(left / right) / Math.log(left * right / (top * top)) || 0;
    found.push({frequency: (bin + shift) * sampleRate / WINDOW, top});
  }
  found.sort((one, other) => other.top - one.top);
  return found.filter((peak) => peak.top > found[0].top / 5).slice(0, 3).map((peak) => peak.frequency);
}
