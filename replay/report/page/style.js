// A run is told by its colour, its dashes and its marker; any one of them is enough.

const kDashes = [null, [7, 3], [2, 3], [9, 3, 2, 3], [4, 2], [12, 4]];
const kMarkers = ['circle', 'triangle', 'square', 'diamond', 'cross', 'ring'];

function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue('--' + name).trim();
}

function runStyle(run) {
  const i = run % kDashes.length;
  return {colour: colour('run' + i), dashes: kDashes[i], marker: kMarkers[i]};
}

const kMarkerPaths = {
  circle: (c, x, y, r) => c.arc(x, y, r, 0, 2 * Math.PI),
  triangle: (c, x, y, r) => polygon(c, [[x, y - r * 1.2], [x + r * 1.1, y + r * 0.8], [x - r * 1.1, y + r * 0.8]]),
  square: (c, x, y, r) => c.rect(x - r * 0.9, y - r * 0.9, 1.8 * r, 1.8 * r),
  diamond: (c, x, y, r) => polygon(c, [[x, y - 1.3 * r], [x + 1.3 * r, y], [x, y + 1.3 * r], [x - 1.3 * r, y]]),
  cross: (c, x, y, r) => {
    c.moveTo(x - r, y - r);
    c.lineTo(x + r, y + r);
    c.moveTo(x + r, y - r);
    c.lineTo(x - r, y + r);
  },
  ring: (c, x, y, r) => c.arc(x, y, r, 0, 2 * Math.PI),
};

function polygon(context, corners) {
  corners.forEach(([x, y], i) => i === 0 ? context.moveTo(x, y) : context.lineTo(x, y));
  context.closePath();
}

function drawMarker(context, style, x, y, radius) {
  context.beginPath();
  kMarkerPaths[style.marker](context, x, y, radius);
  const isOutline = style.marker === 'cross' || style.marker === 'ring';
  context.lineWidth = isOutline ? 1.8 : 1;
  context.strokeStyle = isOutline ? style.colour : colour('paper');
  context.fillStyle = style.colour;
  if (!isOutline) context.fill();
  context.stroke();
}

const kSwatchWidth = 34;
const kSwatchHeight = 14;

// Drawn anew when the colours change.
function drawSwatch(canvas, run) {
  const scale = window.devicePixelRatio || 1;
  canvas.width = kSwatchWidth * scale;
  canvas.height = kSwatchHeight * scale;
  canvas.style.width = kSwatchWidth + 'px';
  canvas.style.height = kSwatchHeight + 'px';
  const context = canvas.getContext('2d');
  context.scale(scale, scale);
  const style = runStyle(run);
  context.strokeStyle = style.colour;
  context.lineWidth = 2;
  context.setLineDash(style.dashes || []);
  context.beginPath();
  context.moveTo(0, kSwatchHeight / 2);
  context.lineTo(kSwatchWidth, kSwatchHeight / 2);
  context.stroke();
  context.setLineDash([]);
  drawMarker(context, style, kSwatchWidth / 2, kSwatchHeight / 2, 4);
}

function swatch(run) {
  const canvas = element('canvas', {class: 'swatch', 'data-run': run, 'aria-hidden': 'true'});
  drawSwatch(canvas, run);
  return canvas;
}

function redrawSwatches() {
  document.querySelectorAll('.swatch').forEach(canvas => drawSwatch(canvas, Number(canvas.dataset.run)));
}
