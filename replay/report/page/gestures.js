// Mouse, touch and keys. The charts' own handling is off: it would keep a phone from scrolling the
// page and knows no keyboard.

const kClickSlack = 4;       // px
const kPanShare = 0.2;
const kZoomStep = 0.6;
const kWheelZoom = 0.0025;   // per px of the wheel

// Fingers on one panel: one moves, two zoom.
class TouchGesture {
  constructor(panel, view) {
    this.panel = panel;
    this.view = view;
    this.fingers = new Map();  // pointer id to {x, time}
  }

  down(event) {
    this.fingers.set(event.pointerId, {x: event.clientX, time: this.panel.timeAt(event.clientX)});
  }

  move(event) {
    const finger = this.fingers.get(event.pointerId);
    if (!finger) return;
    finger.x = event.clientX;
    const box = this.panel.plot.getBoundingClientRect();
    const area = this.panel.chart.getArea();
    const shares = [...this.fingers.values()].map(({x, time}) =>
      ({share: (x - box.left - area.x) / area.w, time}));
    if (shares.length === 1) {
      const width = this.view.stop - this.view.start;
      const start = shares[0].time - shares[0].share * width;
      this.view.setWindow(start, start + width);
    } else {
      this.pinch(shares[0], shares[1]);
    }
  }

  // Each finger keeps the time it was put on.
  pinch(a, b) {
    if (Math.abs(a.share - b.share) < 0.02) return;
    const width = (b.time - a.time) / (b.share - a.share);
    if (width <= 0) return;
    const start = a.time - a.share * width;
    this.view.setWindow(start, start + width);
  }

  up(event) {
    this.fingers.delete(event.pointerId);
    for (const finger of this.fingers.values()) finger.time = this.panel.timeAt(finger.x);
  }
}

// A mouse drags the stretch to zoom to, or moves with Shift.
class MouseGesture {
  constructor(panel, view) {
    this.panel = panel;
    this.view = view;
    this.band = element('div', {class: 'drag', hidden: true});
    panel.plot.append(this.band);
  }

  down(event) {
    this.from = {x: event.clientX, time: this.panel.timeAt(event.clientX), pans: event.shiftKey};
  }

  move(event) {
    if (!this.from) return;
    if (this.from.pans) {
      const shift = this.from.time - this.panel.timeAt(event.clientX);
      this.view.setWindow(this.view.start + shift, this.view.stop + shift);
      return;
    }
    const left = this.panel.plot.getBoundingClientRect().left;
    this.band.hidden = Math.abs(event.clientX - this.from.x) < kClickSlack;
    this.band.style.left = Math.min(event.clientX, this.from.x) - left + 'px';
    this.band.style.width = Math.abs(event.clientX - this.from.x) + 'px';
  }

  up(event) {
    if (this.from && !this.band.hidden && !this.from.pans) {
      const time = this.panel.timeAt(event.clientX);
      this.view.setWindow(Math.min(time, this.from.time), Math.max(time, this.from.time));
    }
    this.band.hidden = true;
    this.from = null;
  }
}

function listenToPointer(panel, view) {
  const gestures = {mouse: new MouseGesture(panel, view), touch: new TouchGesture(panel, view)};
  const gestureOf = event => gestures[event.pointerType === 'touch' ? 'touch' : 'mouse'];
  let downAt = null;
  const plot = panel.plot;
  plot.addEventListener('pointerdown', event => {
    if (event.button !== 0) return;
    downAt = event.clientX;
    plot.setPointerCapture(event.pointerId);
    gestureOf(event).down(event);
  });
  plot.addEventListener('pointermove', event => {
    if (event.pointerType === 'mouse') view.hover(panel.timeAt(event.clientX));
    gestureOf(event).move(event);
  });
  const end = isClick => event => {
    gestureOf(event).up(event);
    if (isClick && downAt !== null && Math.abs(event.clientX - downAt) < kClickSlack) {
      view.choose(nearestFrame(view.focusRun(), panel.timeAt(event.clientX) * kNsPerSecond));
    }
    downAt = null;
  };
  plot.addEventListener('pointerup', end(true));
  plot.addEventListener('pointercancel', end(false));
  plot.addEventListener('pointerleave', () => view.hover(null));
  plot.addEventListener('dblclick', () => view.all());
  listenToWheel(panel, view);
}

function listenToWheel(panel, view) {
  panel.plot.addEventListener('wheel', event => {
    if (event.ctrlKey || event.metaKey) {
      event.preventDefault();
      view.zoom(Math.exp(event.deltaY * kWheelZoom), panel.timeAt(event.clientX));
    } else if (Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
      event.preventDefault();
      view.pan(event.deltaX / panel.plot.clientWidth);
    }
  }, {passive: false});
}

// The overview moves the visible part instead of zooming into itself.
function listenToOverview(overview, view) {
  const moveTo = event => {
    const width = view.stop - view.start;
    const time = overview.timeAt(event.clientX);
    view.setWindow(time - width / 2, time + width / 2);
  };
  overview.plot.addEventListener('pointerdown', event => {
    overview.plot.setPointerCapture(event.pointerId);
    moveTo(event);
  });
  overview.plot.addEventListener('pointermove', event => {
    if (event.buttons !== 0) moveTo(event);
  });
  overview.plot.addEventListener('dblclick', () => view.all());
}

const kActions = {
  left: view => view.pan(-kPanShare),
  right: view => view.pan(kPanShare),
  in: view => view.zoom(kZoomStep),
  out: view => view.zoom(1 / kZoomStep),
  all: view => view.all(),
  begin: view => view.pan(-(view.start - view.begin) / (view.stop - view.start)),
  end: view => view.pan((view.end - view.stop) / (view.stop - view.start)),
  'previous-width': view => view.pan(-1),
  'next-width': view => view.pan(1),
  'previous-frame': view => stepFrame(view, -1),
  'next-frame': view => stepFrame(view, 1),
  'previous-late': view => stepLateFrame(view, -1),
  'next-late': view => stepLateFrame(view, 1),
  log: () => focusLog(),
};

const kKeys = {
  'ArrowLeft': 'left', 'ArrowRight': 'right', 'Shift+ArrowLeft': 'previous-width', 'PageUp': 'previous-width',
  'Shift+ArrowRight': 'next-width', 'PageDown': 'next-width', 'ArrowUp': 'in', 'ArrowDown': 'out', '+': 'in',
  'Shift++': 'in', '=': 'in', '-': 'out', 'Home': 'begin', 'End': 'end', '0': 'all', 'Escape': 'all', ',': 'previous-frame',
  '.': 'next-frame', 'n': 'next-late', 'Shift+N': 'previous-late', 'Enter': 'log',
};

function listenToKeys(plot, view) {
  plot.addEventListener('keydown', event => {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    const action = kKeys[(event.shiftKey ? 'Shift+' : '') + event.key];
    if (!action) return;
    event.preventDefault();
    kActions[action](view);
  });
}
