// The LCD on a canvas, pixel for pixel.
import {bytesOf} from './events.js';

export const WIDTH = 240;
export const HEIGHT = 320;

// The three colours of an RGB565 pixel as a canvas word: red in the low byte.
function canvasWord(pixel) {
  const red = pixel >> 11, green = pixel >> 5 & 63, blue = pixel & 31;
  return 0xFF000000 | (blue << 3 | blue >> 2) << 16 | (green << 2 | green >> 4) << 8 | (red << 3 | red >> 2);
}

const COLOURS = new Uint32Array(0x10000).map((_, pixel) => canvasWord(pixel));

// Returns a function that draws the picture of an event "lcd".
export function lcdOn(canvas) {
  canvas.width = WIDTH;
  canvas.height = HEIGHT;
  const context = canvas.getContext('2d', {alpha: false});
  const image = context.createImageData(WIDTH, HEIGHT);
  const words = new Uint32Array(image.data.buffer);
  return (picture) => {
    const data = new Uint16Array(bytesOf(picture.runs ?? picture.pixels).buffer);
    if (picture.pixels) {
      for (let place = 0; place < data.length; ++place) words[place] = COLOURS[data[place]];
    } else {
      for (let run = 0, place = 0; run < data.length; run += 2) {
        words.fill(COLOURS[data[run + 1]], place, place += data[run]);
      }
    }
    context.putImageData(image, 0, 0);
    canvas.dispatchEvent(new CustomEvent('drawn'));
  };
}
