// One chart on the shared time axis.

const kAxisLabelWidth = 58;
const kDotSpacing = 7;   // px between frames from which on each gets a dot
const kMarkRadius = 3.5;

// What every chart has in common, the overview included.
function chartOptions(view) {
  return {
    legend: 'never', interactionModel: {}, highlightCircleSize: 0, animatedZooms: false,
    connectSeparatedPoints: true, dateWindow: [view.start, view.stop], rightGap: 16, strokeWidth: 1.3,
    axisLineColor: colour('line'), gridLineColor: colour('grid'), gridLineWidth: 1, xAxisHeight: 18,
    labels: ['time'].concat(view.runs.map((run, i) => 'run' + i)),
    series: Object.fromEntries(view.runs.map((run, i) =>
      ['run' + i, {color: runStyle(i).colour, strokePattern: runStyle(i).dashes}])),
    axes: {
      x: {ticker: (start, stop, pixels) => timeTicks(start, stop, pixels)},
      y: {axisLabelWidth: kAxisLabelWidth},
    },
  };
}

// The display may have changed its rate: the period in the middle of what is visible.
function periodInView(view) {
  const run = view.focusRun();
  const frame = nearestFrame(run, (view.start + view.stop) / 2 * kNsPerSecond);
  return frame < 0 ? run.periodNs : run.frames.period[frame];
}

function drawVsyncs(context, area, chart, view) {
  const run = view.focusRun();
  const toX = time => chart.toDomXCoord(time / kNsPerSecond);
  const periodPx = area.w * periodInView(view) / kNsPerSecond / (view.stop - view.start);
  if (periodPx < 6) return;
  context.strokeStyle = colour('grid');
  context.lineWidth = 1;
  const from = lowerBound(run.vsyncs, view.start * kNsPerSecond);
  for (let i = from; i < run.vsyncs.length && run.vsyncs[i] < view.stop * kNsPerSecond; ++i) {
    context.beginPath();
    context.moveTo(toX(run.vsyncs[i]), area.y);
    context.lineTo(toX(run.vsyncs[i]), area.y + area.h);
    context.stroke();
  }
}

// By hand, so that the first stands out: a frame that takes longer misses a vsync.
function drawPeriods(context, area, chart, ticks) {
  ticks.forEach((tick, i) => {
    context.strokeStyle = colour(i === 1 ? 'quiet' : 'grid');
    context.lineWidth = 1;
    context.beginPath();
    context.moveTo(area.x, chart.toDomYCoord(tick.v));
    context.lineTo(area.x + area.w, chart.toDomYCoord(tick.v));
    context.stroke();
  });
}

// Readable on whatever lies below it.
function drawText(context, text, x, y, inkName) {
  context.font = '11px system-ui, sans-serif';
  context.lineJoin = 'round';
  context.lineWidth = 3;
  context.strokeStyle = colour('paper');
  context.strokeText(text, x, y);
  context.fillStyle = colour(inkName);
  context.fillText(text, x, y);
}

// An arrow at the upper edge for what does not fit, with its value where there is room.
function drawBeyond(e, points) {
  const context = e.drawingContext;
  const top = e.plotArea.y + 2;
  let freeFrom = -Infinity;
  context.font = '11px system-ui, sans-serif';
  for (const point of points) {
    context.beginPath();
    polygon(context, [[point.canvasx, top], [point.canvasx + 5, top + 8], [point.canvasx - 5, top + 8]]);
    context.strokeStyle = e.color;
    context.fillStyle = colour('paper');
    context.lineWidth = 1.6;
    context.fill();
    context.stroke();
    const text = point.yval < 1000 ? point.yval.toFixed(0) + ' ms' : (point.yval / 1000).toFixed(2) + ' s';
    const width = context.measureText(text).width;
    const x = Math.min(point.canvasx + 7, e.plotArea.x + e.plotArea.w - width);
    if (x < freeFrom) continue;
    freeFrom = x + width + 8;
    drawText(context, text, x, top + 9 + 11 * (e.seriesIndex % 3), 'ink');
  }
}

function markerPlotter(definition, view) {
  return e => {
    const area = e.plotArea;
    const run = view.runs[e.seriesIndex];
    const top = e.dygraph.yAxisRange()[1];
    const points = e.points.filter(p => p.yval !== null && !isNaN(p.yval) &&
        p.canvasx >= area.x - 1 && p.canvasx <= area.x + area.w + 1);
    const style = runStyle(e.seriesIndex);
    const hasRoom = points.length * kDotSpacing < area.w;
    for (const point of points) {
      const isMarked = definition.marksLate && isLate(run, nearestFrame(run, point.xval * kNsPerSecond));
      if (point.yval > top) continue;
      if (isMarked) drawMarker(e.drawingContext, style, point.canvasx, point.canvasy, kMarkRadius);
      else if (hasRoom && !definition.isStep) drawMarker(e.drawingContext, style, point.canvasx, point.canvasy, 2.4);
    }
    drawBeyond(e, points.filter(point => point.yval > top));
  };
}

class Panel {
  constructor(view, definition) {
    this.view = view;
    this.definition = definition;
    this.values = view.runs.map((run, i) => element('span', {class: 'value'}, swatch(i), element('span')));
    this.note = element('p', {class: 'note', hidden: true});
    this.canvas = element('div', {class: 'canvas'});
    this.cross = element('div', {class: 'cross', hidden: true});
    this.chosen = element('div', {class: 'chosen', hidden: true});
    this.plot = element('div', {class: 'plot', tabindex: '0', role: 'group', 'aria-roledescription': 'chart',
      'aria-label': definition.title + (definition.unit ? ', ' + definition.unit : '') +
          ', over time. Arrow keys move and zoom; the same figures stand in the tables below.'},
        this.canvas, this.cross, this.chosen);
    this.node = element('div', {class: 'panel', id: 'panel-' + definition.id},
        element('h3', {}, definition.title, element('span', {class: 'unit'}, definition.unit), ...this.values),
        this.plot, this.note);
    if (definition.height) this.plot.style.height = definition.height + 'px';
  }

  // Once the panel has its place in the page.
  create() {
    this.load();
    this.chart = new Dygraph(this.canvas, this.rows(), Object.assign(this.options(), chartOptions(this.view), {
      axes: {x: this.xAxis(), y: this.yAxis()},
    }));
    this.placeMarks();
  }

  load() {
    const nothing = {times: [], values: [], untilNs: 0};
    this.series = this.view.runs.map((run, i) => this.view.shown[i] ? seriesOf(this.definition, run) : nothing);
    this.scale = scaleOf(this.definition, this.view, this.series);
    const isEmpty = this.series.every(series => series.times.length === 0);
    this.note.hidden = !isEmpty;
    this.note.textContent = this.definition.debugOnly ?
        'Nothing to show: the library tells this only with its debug switch on, and only while it is in force.' :
        'Nothing to show.';
    this.plot.hidden = isEmpty;
  }

  options() {
    return {
      stepPlot: Boolean(this.definition.isStep),
      plotter: [Dygraph.Plotters.linePlotter, markerPlotter(this.definition, this.view)],
      underlayCallback: (context, area, chart) => {
        drawVsyncs(context, area, chart, this.view);
        if (this.definition.vsyncLines) drawPeriods(context, area, chart, this.yTicks(area.h));
      },
    };
  }

  xAxis() { return chartOptions(this.view).axes.x; }

  yAxis() {
    return {axisLabelWidth: kAxisLabelWidth, valueRange: this.scale, drawGrid: !this.definition.vsyncLines,
      ticker: (a, b, pixels) => this.yTicks(pixels)};
  }

  yTicks(pixels) {
    const [low, high] = this.scale;
    return this.definition.vsyncLines ? periodTicks(periodInView(this.view) / kNsPerMs, high, pixels) :
        valueTicks(low, high, pixels, this.definition.wholeNumbers);
  }

  rows() {
    const columns = Math.max(200, this.canvas.clientWidth - kAxisLabelWidth);
    return rowsOf(this.view, this.series, columns, this.definition.isStep);
  }

  // After the window, the runs shown or the colours changed.
  update() {
    if (!this.chart || this.plot.hidden) return;
    this.chart.updateOptions(Object.assign(chartOptions(this.view), {
      file: this.rows(), axes: {x: this.xAxis(), y: this.yAxis()},
    }));
    this.placeMarks();
  }

  reload() {
    this.load();
    if (!this.plot.hidden) this.chart.resize();
    this.update();
    this.showValues();
  }

  xOf(timeNs) {
    return this.chart.toDomXCoord(timeNs / kNsPerSecond);
  }

  timeAt(clientX) {
    return this.chart.toDataXCoord(clientX - this.plot.getBoundingClientRect().left);
  }

  placeMarks() {
    this.placeCross();
    const run = this.view.focusRun();
    const choice = this.view.chosen;
    this.chosen.hidden = choice === null || !this.chart;
    if (this.chosen.hidden) return;
    const frame = choice.frame;
    const end = choice.entry >= 0 ? run.log.time[choice.entry] : run.frames.queued[frame];
    const begin = choice.entry >= 0 ? end : frame > 0 ? run.frames.queued[frame - 1] : end;
    const {x, w} = this.chart.getArea();
    const clamp = value => Math.min(Math.max(value, x), x + w);
    const left = clamp(this.xOf(begin));
    const right = clamp(this.xOf(end));
    this.chosen.hidden = this.xOf(end) < x || this.xOf(begin) > x + w;
    this.chosen.style.left = left + 'px';
    this.chosen.style.width = Math.max(2, right - left) + 'px';
  }

  placeCross() {
    const time = this.view.hoverTime;
    this.cross.hidden = !this.isHoverVisible();
    if (!this.cross.hidden) this.cross.style.left = this.xOf(time * kNsPerSecond) + 'px';
    this.showValues();
  }

  isHoverVisible() {
    const time = this.view.hoverTime;
    return this.chart && time !== null && time >= this.view.start && time <= this.view.stop;
  }

  showValues() {
    const time = this.isHoverVisible() ? this.view.hoverTime * kNsPerSecond : this.chosenTime();
    this.values.forEach((node, run) => {
      const value = time === null || this.plot.hidden ? NaN : valueAt(this.definition, this.series[run], time);
      node.hidden = isNaN(value);
      const digits = this.definition.wholeNumbers ? 0 : 2;
      if (!node.hidden) node.lastChild.textContent = value.toFixed(digits).replace('-', '\u2212');
    });
  }

  chosenTime() {
    const choice = this.view.chosen;
    if (!choice) return null;
    const run = this.view.focusRun();
    return choice.frame >= 0 ? run.frames.queued[choice.frame] : run.log.time[choice.entry];
  }
}
