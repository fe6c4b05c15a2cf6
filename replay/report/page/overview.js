// The whole run in one strip, with the visible part marked.

class Overview {
  constructor(view, node) {
    this.view = view;
    this.plot = node;
    this.canvas = element('div', {class: 'canvas'});
    node.append(this.canvas);
    this.whole = Object.assign(Object.create(view), {start: view.begin, stop: view.end});
    this.definition = kPanels[0];
    this.load();
    this.chart = new Dygraph(this.canvas, this.rows(), this.options());
  }

  load() {
    const nothing = {times: [], values: [], untilNs: 0};
    this.series = this.view.runs.map((run, i) => this.view.shown[i] ? seriesOf(this.definition, run) : nothing);
  }

  rows() { return rowsOf(this.whole, this.series, Math.max(200, this.canvas.clientWidth), false); }

  options() {
    const common = chartOptions(this.whole);
    return Object.assign(common, {
      underlayCallback: (context, area) => this.drawWindow(context, area),
      axes: {x: common.axes.x, y: {axisLabelWidth: kAxisLabelWidth, drawGrid: false,
        valueRange: scaleOf(this.definition, this.view, this.series), ticker: () => []}},
    });
  }

  drawWindow(context, area) {
    const perSecond = area.w / (this.view.end - this.view.begin);
    const left = area.x + (this.view.start - this.view.begin) * perSecond;
    const width = Math.max(3, (this.view.stop - this.view.start) * perSecond);
    context.fillStyle = colour('band');
    context.fillRect(left, area.y, width, area.h);
    context.strokeStyle = colour('accent');
    context.lineWidth = 2;
    context.strokeRect(left, area.y + 1, width, area.h - 2);
  }

  update() { this.chart.updateOptions(Object.assign(this.options(), {file: this.rows()})); }

  reload() {
    this.load();
    this.update();
  }

  timeAt(clientX) {
    return this.chart.toDataXCoord(clientX - this.plot.getBoundingClientRect().left);
  }
}
