// The runs as they are embedded: lists of numbers are columns, exact and small.

const kNsPerSecond = 1e9;
const kNsPerMs = 1e6;

// A column is base64; in it each value's difference to the one before as a zigzag varint.
function decodeColumn(text) {
  const bytes = atob(text);
  const values = [];
  let value = 0;
  for (let at = 0; at < bytes.length;) {
    let code = 0;
    let weight = 1;
    let byte;
    do {
      byte = bytes.charCodeAt(at++);
      code += (byte & 127) * weight;  // not by shifting: times are longer than 32 bits
      weight *= 128;
    } while (byte > 127);
    value += code % 2 ? -(code + 1) / 2 : code / 2;
    values.push(value);
  }
  return Float64Array.from(values);
}

function decodeColumns(raw) {
  const columns = {};
  for (const name of Object.keys(raw)) columns[name] = decodeColumn(raw[name]);
  return columns;
}

function decodeTable(raw) {
  const columns = decodeColumns(raw);
  columns.count = Object.values(columns)[0].length;
  return columns;
}

const kFlagLate = 1;
const kHoldNames = ['', 'until its release', 'for accumulated buffers'];

function unpackRun(raw, index, previous) {
  const run = Object.assign({}, raw, {index});
  run.frames = decodeTable(raw.frames);
  run.frames.interval = run.frames.queued.map(
      (queued, i) => i === 0 ? 0 : queued - run.frames.queued[i - 1]);
  run.parts = decodeColumns(raw.parts);
  for (const name of ['boosts', 'releases', 'lowered', 'loweredEnds', 'plOff', 'coreControlOff',
    'stutters', 'pingpongs']) {
    run[name] = decodeTable(raw[name]);
  }
  run.series = {};
  for (const name of Object.keys(raw.series)) run.series[name] = decodeTable(raw.series[name]);
  run.vsyncs = raw.vsyncs === null ? previous.vsyncs : decodeColumn(raw.vsyncs);
  run.log = Object.assign(decodeTable(raw.log.columns), {texts: raw.log.texts});
  return run;
}

function unpackRuns(text) {
  const runs = [];
  for (const raw of JSON.parse(text).runs) runs.push(unpackRun(raw, runs.length, runs[runs.length - 1]));
  return runs;
}

function isLate(run, frame) {
  return (run.frames.flags[frame] & kFlagLate) !== 0;
}

// The first index whose value is not below `value`.
function lowerBound(values, value) {
  let low = 0;
  let high = values.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (values[middle] < value) low = middle + 1;
    else high = middle;
  }
  return low;
}

function nearestFrame(run, timeNs) {
  const queued = run.frames.queued;
  const after = lowerBound(queued, timeNs);
  if (after === 0) return queued.length > 0 ? 0 : -1;
  if (after === queued.length) return after - 1;
  return timeNs - queued[after - 1] <= queued[after] - timeNs ? after - 1 : after;
}
