// What is drawn, one panel a row of this table. `series` makes {times, values} of a run.

const kBeyondPeriods = 4;  // frame times further up are arrows: one stall must not flatten the rest

// A frame without a value breaks the line: nothing is drawn where nothing is known.
function ofFrames(run, column, isKnown = () => true) {
  return {times: run.frames.queued, values: column.map((ns, i) => isKnown(i) ? ns / kNsPerMs : NaN)};
}

function ofSamples(run, name, scale) {
  const samples = run.series[name];
  return {times: samples.time, values: samples.value.map(value => value / scale)};
}

const kNsToMs = kNsPerMs;
const kThousandths = 1000;

const kPanels = [
  {id: 'frame-time', title: 'Frame time', unit: 'ms, from one queued buffer to the next; a line each vsync period', height: 170,
    series: run => ofFrames(run, run.frames.interval, i => i > 0), vsyncLines: true, marksLate: true},
  {id: 'hints', title: 'Hints, releases and regulators', unit: '', lanes: true},
  {id: 'held', title: 'Held time', unit: 'ms, by which the queue call was delayed', height: 110,
    series: run => ofFrames(run, run.frames.held)},
  {id: 'latency', title: 'Queue to latch', unit: 'ms, until the compositor took the buffer', height: 110,
    series: run => ofFrames(run, run.frames.latency, i => run.frames.latency[i] >= 0)},
  {id: 'depth', title: 'Queue depth', unit: 'buffers queued and not yet taken', height: 90, isStep: true,
    series: run => ofSamples(run, 'queueDepth', 1), wholeNumbers: true},
  {id: 'headroom', title: 'Headroom', unit: 'ms before the next vsync', height: 90, isStep: true, debugOnly: true,
    series: run => ofSamples(run, 'headroom', kNsToMs)},
  {id: 'coefficient', title: 'Coefficient', unit: '%, of negative boosts', height: 90, isStep: true, debugOnly: true,
    series: run => ofSamples(run, 'coefficient', kThousandths)},
  {id: 'threshold', title: 'Threshold', unit: '% of the vsync period that an early frame may take', height: 90,
    isStep: true, isOptional: true, debugOnly: true, series: run => ofSamples(run, 'threshold', kThousandths)},
  {id: 'expectation', title: 'Boost expectation', unit: 'from \u22123 to 3', height: 90, isStep: true, isOptional: true,
    debugOnly: true, series: run => ofSamples(run, 'boostExpectation', kThousandths), wholeNumbers: true},
  {id: 'rate', title: 'Measured rate', unit: 'frames a second', height: 90, isStep: true, isOptional: true,
    debugOnly: true, series: run => ofSamples(run, 'measuredFps', kThousandths)},
  {id: 'render', title: 'Render time', unit: 'ms, from the return of one queue call to the next', height: 110,
    isOptional: true, series: run => ofFrames(run, run.frames.render, i => i > 0)},
];

function seriesOf(definition, run) {
  const series = definition.series(run);
  series.untilNs = run.durationNs;
  return series;
}

// Of everything, not of what is visible: while moving about, heights stay comparable.
function scaleOf(definition, view, seriesOfRuns) {
  let low = 0;
  let high = 0;
  seriesOfRuns.forEach(series => {
    for (const value of series.values) {
      if (value < low) low = value;
      if (value > high) high = value;
    }
  });
  const periodMs = Math.max(...view.runs.map(run => run.periodNs)) / kNsPerMs;
  if (definition.vsyncLines) high = Math.max(high, 2.2 * periodMs);
  if (definition.unit.startsWith('ms')) high = Math.min(high, kBeyondPeriods * periodMs);
  if (high === low) high = low + 1;
  const air = (high - low) * 0.1;
  return [low - air, high + air];  // a line along 0 must not hide in the axis
}

// The value that holds at a time, for the line above the panel; NaN if there is none.
function valueAt(definition, series, timeNs) {
  const after = lowerBound(series.times, timeNs + (definition.isStep ? 1 : 0));
  if (definition.isStep) return after > 0 ? series.values[after - 1] : NaN;
  if (series.times.length === 0) return NaN;
  if (after === 0) return series.values[0];
  if (after === series.times.length) return series.values[after - 1];
  const before = after - 1;
  return series.values[timeNs - series.times[before] <= series.times[after] - timeNs ? before : after];
}
