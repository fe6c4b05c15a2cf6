// What all panels, the log and the tables share: the visible stretch of time, the runs shown, the
// frame under the pointer and the chosen one. Times in seconds.

const kNarrowest = 0.002;
const kMargin = 0.005;  // of the run, so that its ends do not stick to the edges

function createView(runs) {
  const first = Math.min(0, ...runs.map(run => run.frames.count ? run.frames.queued[0] : 0));
  const last = Math.max(...runs.map(run => Math.max(run.durationNs,
      run.frames.count ? run.frames.queued[run.frames.count - 1] : 0)));
  const margin = Math.max(last - first, kNsPerSecond / 10) * kMargin;
  const begin = (first - margin) / kNsPerSecond;
  const end = (last + margin) / kNsPerSecond;
  const listeners = {window: [], hover: [], choice: [], runs: []};
  const tell = what => listeners[what].forEach(listener => listener());

  const view = {
    begin, end, runs,
    start: begin, stop: end,
    hoverTime: null,
    focus: 0,  // the run whose frames and log are shown
    chosen: null,  // {frame, entry}: of the run in focus; each may be -1
    shown: runs.map(() => true),
    on(what, listener) { listeners[what].push(listener); },

    setWindow(start, stop) {
      const width = Math.max(stop - start, kNarrowest);
      const middle = (start + stop) / 2;
      const isAll = width >= end - begin;
      view.start = isAll ? begin : Math.min(Math.max(middle - width / 2, begin), end - width);
      view.stop = isAll ? end : view.start + width;
      tell('window');
    },
    all() { view.setWindow(begin, end); },
    pan(share) {
      const step = (view.stop - view.start) * share;
      view.setWindow(view.start + step, view.stop + step);
    },
    // The time `about` stays where it is.
    zoom(factor, about = (view.start + view.stop) / 2) {
      const width = Math.min(Math.max((view.stop - view.start) * factor, kNarrowest), end - begin);
      const share = (about - view.start) / (view.stop - view.start);
      view.setWindow(about - width * share, about + width * (1 - share));
    },
    hover(time) {
      view.hoverTime = time;
      tell('hover');
    },
    choose(frame, entry = -1) {
      view.chosen = frame < 0 && entry < 0 ? null : {frame, entry};
      tell('choice');
    },
    setFocus(run) {
      view.focus = run;
      view.chosen = null;
      tell('runs');
      tell('choice');
    },
    show(run, isShown) {
      view.shown[run] = isShown;
      tell('runs');
    },
    focusRun() { return runs[view.focus]; },
  };
  return view;
}

// Moves the visible part only as far as needed, and closer only if it shows very much.
function reveal(view, timeNs, width = 0.5) {
  const time = timeNs / kNsPerSecond;
  const isNear = view.stop - view.start <= 2 * width;
  const span = isNear ? view.stop - view.start : width;
  const edge = span * 0.1;
  if (!isNear || time < view.start + edge || time > view.stop - edge) {
    view.setWindow(time - span / 2, time + span / 2);
  }
}

function chooseFrame(view, frame) {
  if (frame < 0 || frame >= view.focusRun().frames.count) return;
  view.choose(frame);
  reveal(view, view.focusRun().frames.queued[frame]);
}

function stepFrame(view, step) {
  const middle = (view.start + view.stop) / 2 * kNsPerSecond;
  const from = view.chosen && view.chosen.frame >= 0 ? view.chosen.frame + step :
      nearestFrame(view.focusRun(), middle);
  chooseFrame(view, from);
}

// From the chosen frame, or from the edge of the visible part that lies in that direction's back.
function stepLateFrame(view, step) {
  const run = view.focusRun();
  let frame;
  if (view.chosen && view.chosen.frame >= 0) {
    frame = view.chosen.frame + step;
  } else {
    const edge = lowerBound(run.frames.queued, (step > 0 ? view.start : view.stop) * kNsPerSecond);
    frame = step > 0 ? edge : edge - 1;
  }
  while (frame >= 0 && frame < run.frames.count && !isLate(run, frame)) frame += step;
  chooseFrame(view, frame);
}
