// Round times below the panels, with their unit.

const kSteps = [1, 2, 5];

function roundStep(least) {
  for (let power = Math.pow(10, Math.floor(Math.log10(least)));; power *= 10) {
    for (const step of kSteps) {
      if (step * power >= least * 0.999) return step * power;
    }
  }
}

function timeTicks(start, stop, pixels) {
  const step = roundStep((stop - start) / Math.max(2, Math.floor(pixels / 85)));
  const decimals = Math.max(0, -Math.floor(Math.log10(step) + 1e-9));
  const ticks = [];
  for (let i = Math.ceil(start / step); i * step <= stop; ++i) {
    ticks.push({v: i * step, label: (i * step).toFixed(decimals) + ' s'});
  }
  return ticks;
}

function valueTicks(low, high, pixels, wholeNumbers) {
  let step = roundStep((high - low) / Math.max(2, Math.floor(pixels / 22)));
  if (wholeNumbers) step = Math.max(1, step);
  const decimals = Math.max(0, -Math.floor(Math.log10(step) + 1e-9));
  const ticks = [];
  for (let i = Math.ceil(low / step); i * step <= high; ++i) {
    ticks.push({v: i * step, label: (i * step).toFixed(decimals).replace('-', '\u2212')});
  }
  return ticks;
}

// One each vsync period, as far as they have room.
function periodTicks(periodMs, high, pixels) {
  const every = Math.max(1, Math.ceil(14 * high / periodMs / pixels));
  const ticks = [];
  for (let i = 0; i * periodMs <= high; i += every) ticks.push({v: i * periodMs, label: (i * periodMs).toFixed(1)});
  return ticks;
}
