// Hints, releases, locks and the regulators as lanes, one line a run in each.

const kLineHeight = 10;  // px a run
const kLaneGap = 7;
const kLeastWidth = 2.5;
const kLeastShare = 0.15;

function spans(begin, length) {
  return {begin, end: begin.map((time, i) => time + length[i])};
}

function boostsAt(run, checkpoint) {
  const picked = [];
  for (let i = 0; i < run.boosts.count; ++i) {
    if (run.boosts.checkpoint[i] === checkpoint) picked.push(i);
  }
  return spans(picked.map(i => run.boosts.time[i]), picked.map(i => run.boosts.length[i]));
}

function regulatorSpans(run, name) {
  return {begin: run[name].spans.map(span => span[0]), end: run[name].spans.map(span => span[1])};
}

const kLanes = [
  {label: 'boost 1', of: run => boostsAt(run, 1)},
  {label: 'boost 2', of: run => boostsAt(run, 2)},
  {label: 'boost 3', of: run => boostsAt(run, 3)},
  {label: 'release', mark: 'down', of: run => ({begin: run.releases.time, end: run.releases.time})},
  {label: 'lowered', of: run => Object.assign(spans(run.lowered.time, run.lowered.length), {strength: run.lowered.strength})},
  {label: 'undone', mark: 'down', of: run => ({begin: run.loweredEnds.time, end: run.loweredEnds.time})},
  {label: 'PL off', of: run => spans(run.plOff.time, run.plOff.length)},
  {label: 'core c. off', of: run => spans(run.coreControlOff.time, run.coreControlOff.length)},
  {label: 'ping-pong', mark: 'cross', of: run => ({begin: run.pingpongs.time, end: run.pingpongs.time})},
  {label: 'stutter', mark: 'cross', of: run => ({begin: run.stutters.time, end: run.stutters.time})},
  {label: 'GFAR on', isFrame: true, of: run => regulatorSpans(run, 'frameRegulator')},
  {label: 'PHR on', isFrame: true, of: run => regulatorSpans(run, 'headroomRegulator')},
];

class LanePanel extends Panel {
  load() {
    this.series = this.view.runs.map(() => ({times: [], values: [], untilNs: 0}));
    const used = kLanes.map(lane => Object.assign({}, lane, {runs: this.view.runs.map(run => lane.of(run))}));
    this.lanes = used.filter(lane => lane.runs.some((events, i) => this.view.shown[i] && events.begin.length > 0));
    const missing = used.filter(lane => !this.lanes.includes(lane)).map(lane => lane.label);
    this.strongest = Math.max(1, ...this.view.runs.map(run => run.lowered.strength.reduce((a, b) => Math.max(a, b), 0)));
    this.shownRuns = this.view.runs.map((run, i) => i).filter(i => this.view.shown[i]);
    this.laneHeight = kLaneGap + kLineHeight * Math.max(1, this.shownRuns.length);
    this.note.textContent = missing.length > 0 ? 'Not in these runs: ' + missing.join(', ') + '.' : '';
    this.note.hidden = missing.length === 0;
    this.plot.hidden = this.lanes.length === 0;
    this.plot.style.height = this.lanes.length * this.laneHeight + 24 + 'px';
  }

  options() {
    return {underlayCallback: (context, area, chart) => {
      this.drawGrid(context, area, chart);
      this.lanes.forEach((lane, i) => this.drawLane(context, area, lane, i));
    }};
  }

  // By hand: the chart's own would be drawn over the bars and cut them.
  drawGrid(context, area, chart) {
    drawVsyncs(context, area, chart, this.view);
    context.fillStyle = colour('grid');
    for (const tick of timeTicks(this.view.start, this.view.stop, area.w)) {
      context.fillRect(chart.toDomXCoord(tick.v), area.y, 1, area.h);
    }
  }

  xAxis() { return Object.assign(super.xAxis(), {drawGrid: false}); }

  yAxis() {
    const count = this.lanes.length;
    return {axisLabelWidth: kAxisLabelWidth, valueRange: [0, Math.max(1, count)], drawGrid: false,
      ticker: () => this.lanes.map((lane, i) => ({v: count - i - 0.5, label: lane.label}))};
  }

  rows() {
    const row = time => [time].concat(this.view.runs.map(() => null));
    return [row(this.view.start), row(this.view.stop)];
  }

  drawLane(context, area, lane, index) {
    const top = area.y + index * area.h / this.lanes.length;
    context.fillStyle = colour('grid');
    context.fillRect(area.x, top, area.w, 1);
    this.shownRuns.forEach((run, line) => {
      const y = top + kLaneGap / 2 + 1 + line * kLineHeight;
      this.drawEvents(context, area, lane, lane.runs[run], y, runStyle(run));
    });
  }

  drawEvents(context, area, lane, events, y, style) {
    const perSecond = area.w / (this.view.stop - this.view.start);
    const toX = time => area.x + (time / kNsPerSecond - this.view.start) * perSecond;
    let lastX = -Infinity;
    for (let i = 0; i < events.begin.length; ++i) {
      const left = toX(events.begin[i]);
      const right = toX(events.end[i]);
      if (right < area.x - 5 || left > area.x + area.w + 5) continue;
      if (lane.mark) {
        if (left - lastX < 1.5) continue;  // on the pixel of the one before
        this.drawMark(context, lane.mark, left, y + kLineHeight / 2 - 1, style);
      } else {
        this.drawSpan(context, lane, [left, right], y, style, events.strength ? events.strength[i] : null);
      }
      lastX = left;
    }
  }

  // The height of a negative boost's bar is its strength, against the strongest of all.
  drawSpan(context, lane, [left, right], y, style, strength) {
    const height = kLineHeight - 3;
    const share = strength === null ? 1 : Math.max(kLeastShare, strength / this.strongest);
    context.fillStyle = style.colour;
    context.strokeStyle = style.colour;
    context.lineWidth = 1.5;
    const width = Math.max(kLeastWidth, right - left);
    if (lane.isFrame) context.strokeRect(left, y + 1, width, height - 2);
    else context.fillRect(left, y + height * (1 - share), width, height * share);
  }

  drawMark(context, mark, x, y, style) {
    context.beginPath();
    context.strokeStyle = style.colour;
    context.fillStyle = style.colour;
    context.lineWidth = 1.6;
    if (mark === 'down') {
      polygon(context, [[x - 4, y - 3.5], [x + 4, y - 3.5], [x, y + 4]]);
      context.fill();
    } else {
      kMarkerPaths.cross(context, x, y, 3.2);
      context.stroke();
    }
  }

  showValues() { this.values.forEach(node => { node.hidden = true; }); }
}
