// The same figures without a picture: the chosen frame, the visible part, and its frames.

const kFrameRows = 200;
const kNotShown = -(2 ** 62);

function shownText(run, frame) {
  const after = run.frames.shown[frame];
  const late = run.frames.shownLate[frame];
  if (after === kNotShown) return 'never';
  const meant = late === 0 ? 'its vsync' : Math.abs(late) + (Math.abs(late) > 1 ? ' vsyncs ' : ' vsync ') +
      (late > 0 ? 'after its own' : 'before its own');
  return 'at ' + exactSeconds(run.frames.queued[frame] + after) + ' s, ' + meant;
}

function frameLines(run, frame) {
  const frames = run.frames;
  const held = frames.held[frame];
  const hold = kHoldNames[frames.flags[frame] >> 1];
  const lines = [
    ['Queued', exactSeconds(frames.queued[frame]) + ' s'],
    ['Shown', shownText(run, frame)],
    ['Frame time', frame === 0 ? 'the first' : milliseconds(frames.interval[frame]) +
        (isLate(run, frame) ? ', late by ' + milliseconds(frames.interval[frame] - frames.period[frame]) : '')],
    ['Render time', frame === 0 ? '\u2013' : milliseconds(frames.render[frame])],
    ['Held', held > 0 ? milliseconds(held) + (hold ? ', ' + hold : '') : 'no'],
    ['Queue to latch', frames.latency[frame] < 0 ? 'not before the end' : milliseconds(frames.latency[frame])],
    ['In the queue', frames.pending[frame] + ' with this one'],
  ];
  for (const [part, column] of Object.entries(run.parts)) {
    if (column[frame] > 0) lines.push(['\u2026 ' + part, milliseconds(column[frame])]);
  }
  if (frames.phone[frame] >= 0) lines.push(['By the phone itself', run.phone[frames.phone[frame]]]);
  if (frames.delay[frame] > 0) lines.push(['Delivered late by', milliseconds(frames.delay[frame])]);
  return lines;
}

function entriesOf(run, frame) {
  const entries = [];
  const from = lowerBound(run.log.time, run.frames.queued[frame]);
  for (let entry = from; entry < run.log.count && run.log.frame[entry] <= frame; ++entry) {
    if (run.log.frame[entry] === frame && run.log.action[entry] !== 0) entries.push(entry);
  }
  return entries;
}

function showFrame(view, node) {
  const choice = view.chosen;
  if (!choice || choice.frame < 0) {
    node.replaceChildren(element('p', {class: 'quiet'}, choice ? 'This call belongs to no frame.' :
        'Click a chart, or press full stop in one, to choose a frame.'));
    return;
  }
  const run = view.focusRun();
  const list = element('dl', {}, element('dt', {}, 'Number'),
      element('dd', {}, choice.frame + ', of ' + grouped(run.frames.count)));
  for (const [name, value] of frameLines(run, choice.frame)) {
    list.append(element('dt', {}, name), element('dd', {}, value));
  }
  const calls = entriesOf(run, choice.frame).map(entry => run.log.texts[run.log.what[entry]]);
  list.append(element('dt', {}, 'Calls'), element('dd', {}, calls.length ? calls.join('; ') : 'none before the next frame'));
  node.replaceChildren(list);
}

function figuresOf(run, view) {
  const start = view.start * kNsPerSecond;
  const stop = view.stop * kNsPerSecond;
  const from = lowerBound(run.frames.queued, start);
  const to = lowerBound(run.frames.queued, stop);
  const part = column => column.slice(Math.max(from, 1), Math.max(to, 1));
  const spread = values => values.length === 0 ? '\u2013' :
      [0.5, 0.99, 1].map(share => (percentileOf(values, share) / kNsPerMs).toFixed(2)).join(' / ');
  const within = times => lowerBound(times, stop) - lowerBound(times, start);
  let late = 0;
  for (let i = from; i < to; ++i) late += isLate(run, i) ? 1 : 0;
  const depth = run.series.queueDepth;
  const depths = depth.value.slice(lowerBound(depth.time, start), lowerBound(depth.time, stop));
  return [
    ['Frames', grouped(to - from)],
    ['Late', grouped(late)],
    ['Frame time, ms (median / 99 % / most)', spread(part(run.frames.interval))],
    ['Held, ms (median / 99 % / most)', spread(run.frames.held.slice(from, to))],
    ['Queue to latch, ms (median / 99 % / most)', spread(run.frames.latency.slice(from, to).filter(ns => ns >= 0))],
    ['Boosts', grouped(within(run.boosts.time))],
    ['Releases', grouped(within(run.releases.time))],
    ['Negative boosts', grouped(within(run.lowered.time))],
    ['Most in the queue', depths.length ? String(depths.reduce((a, b) => Math.max(a, b))) : '\u2013'],
  ];
}

function showFigures(view, node) {
  const figures = view.runs.map(run => figuresOf(run, view));
  node.replaceChildren(element('div', {class: 'scroll', tabindex: '0', role: 'region', 'aria-label': 'Figures of the visible part'},
      element('table', {}, element('caption', {}, windowText(view)),
          element('thead', {}, element('tr', {}, element('td'), ...view.runs.map(run => element('th', {scope: 'col'}, run.label)))),
          element('tbody', {}, ...figures[0].map(([name], row) => element('tr', {}, element('th', {scope: 'row'}, name),
              ...figures.map(column => element('td', {}, column[row][1]))))))));
}

const kFrameColumns = [
  ['Frame', (run, i) => i], ['Queued, s', (run, i) => exactSeconds(run.frames.queued[i])],
  ['Frame time, ms', (run, i) => (run.frames.interval[i] / kNsPerMs).toFixed(2)],
  ['Late', (run, i) => isLate(run, i) ? 'late' : ''],
  ['Shown, vsyncs late', (run, i) => run.frames.shown[i] === kNotShown ? 'never' : run.frames.shownLate[i]],
  ['Held, ms', (run, i) => (run.frames.held[i] / kNsPerMs).toFixed(2)],
  ['To latch, ms', (run, i) => run.frames.latency[i] < 0 ? '\u2013' : (run.frames.latency[i] / kNsPerMs).toFixed(2)],
  ['In the queue', (run, i) => run.frames.pending[i]],
];

function showFrames(view, node) {
  const run = view.focusRun();
  const from = lowerBound(run.frames.queued, view.start * kNsPerSecond);
  const to = lowerBound(run.frames.queued, view.stop * kNsPerSecond);
  const rows = [];
  for (let i = from; i < Math.min(to, from + kFrameRows); ++i) {
    rows.push(element('tr', {}, ...kFrameColumns.map(([, text]) => element('td', {class: 'number'}, String(text(run, i))))));
  }
  const rest = to - from - rows.length;
  node.replaceChildren(element('div', {class: 'scroll', tabindex: '0', role: 'region', 'aria-label': 'Frames of the visible part'},
      element('table', {}, element('caption', {}, 'Frames: ' + run.label + (rest > 0 ?
          ' (the first ' + kFrameRows + '; zoom in for the other ' + grouped(rest) + ')' : '')),
          element('thead', {}, element('tr', {}, ...kFrameColumns.map(([name]) => element('th', {scope: 'col', class: 'number'}, name)))),
          element('tbody', {}, ...rows))));
}

function windowText(view) {
  const span = view.stop - view.start;
  const text = time => shortSeconds(time, span).replace('-', '\u2212');
  return text(view.start) + ' s to ' + text(view.stop) + ' s (' +
      (span < 1 ? (span * 1000).toFixed(0) + ' ms' : span.toFixed(2) + ' s') + ')';
}
