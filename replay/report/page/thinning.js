// Fewer points for the eye, none of them invented: per pixel column the smallest, the largest and
// the last value.

function thinned(times, values, start, stop, columns) {
  const from = Math.max(0, lowerBound(times, start) - 1);
  const to = Math.min(times.length, lowerBound(times, stop) + 1);
  const kept = [];
  if (to - from <= 3 * columns) {
    for (let i = from; i < to; ++i) kept.push(i);
    return kept;
  }
  const width = (stop - start) / columns;
  let column = null;
  let least = from;
  let most = from;
  const close = last => {
    const picks = [Math.min(least, most), Math.max(least, most), last];
    picks.forEach((pick, i) => { if (i === 0 || pick !== picks[i - 1]) kept.push(pick); });
  };
  for (let i = from; i < to; ++i) {
    const own = Math.floor((times[i] - start) / width);
    if (own !== column) {
      if (column !== null) close(i - 1);
      column = own;
      least = i;
      most = i;
    }
    if (values[i] < values[least] || isNaN(values[least])) least = i;
    if (values[i] > values[most] || isNaN(values[most])) most = i;
  }
  close(to - 1);
  return kept;
}

// Rows for the chart: one point a row, the other runs empty, in order of time.
function rowsOf(view, seriesOfRuns, columns, isStep) {
  const points = [];
  const start = view.start * kNsPerSecond;
  const stop = view.stop * kNsPerSecond;
  seriesOfRuns.forEach((series, run) => {
    const kept = thinned(series.times, series.values, start, stop, columns);
    for (const i of kept) points.push([series.times[i] / kNsPerSecond, run, series.values[i]]);
    if (isStep && kept.length > 0) {
      const last = kept[kept.length - 1];
      const until = Math.min(stop, series.untilNs);
      if (until > series.times[last]) points.push([until / kNsPerSecond, run, series.values[last]]);
    }
  });
  points.sort((a, b) => a[0] - b[0]);
  if (points.length === 0) points.push([view.start, 0, null]);
  return points.map(([time, run, value]) => {
    const row = new Array(seriesOfRuns.length + 1).fill(null);
    row[0] = time;
    row[run + 1] = value;
    return row;
  });
}
