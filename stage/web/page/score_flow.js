// Where the music is on a score, and where it goes from there. Pure functions over what /api/song/N gives.

/** How far ahead is looked for the next sheet. */
const MostBars = 400;

/** The index of the bar at a tick. */
export function barIndexAt(bars, tick) {
  return Math.max(bars.findLastIndex((bar) => bar.tick <= tick), 0);
}

/** The bars that a measure of the score is played as, by index, in their order. */
export function barsOfMeasure(measures, measure) {
  return measures.flatMap((each, index) => (each === measure ? [index] : []));
}

function findLoop(edits, active, tick, bar, played) {
  return edits.find((edit) => {
    if (edit.kind !== 'vamp' && edit.kind !== 'repeat') return false;
    if (edit.end <= bar.tick || edit.end > bar.end || played.has(edit)) return false;
    const loop = active.find((each) => each.start === edit.start && each.end === edit.end && each.kind === edit.kind);
    if (loop !== undefined) return !loop.left && !(loop.limit > 0 && loop.pass >= loop.limit);
    // One that began before and is not active any more has been played; one ahead has not.
    return edit.start > tick;
  });
}

/**
 * The bars from `tick` on, by index, as they will be played if nobody presses anything; once a loop has come round it goes on
 * behind the loop, for it will be left some time. `bars` as listBars gives them.
 */
export function followFlow(song, bars, active, tick) {
  const order = [];
  const played = new Set();
  let index = barIndexAt(bars, tick);
  let from = tick;
  while (index < bars.length && order.length < MostBars) {
    const bar = bars[index];
    const start = Math.max(from, bar.tick);
    const cut = song.edits.find((edit) => edit.kind === 'cut' && edit.start >= start && edit.start < bar.end && edit.end > edit.start);
    if (cut?.start !== bar.tick) order.push(index);
    const loop = findLoop(song.edits, active ?? [], tick, bar, played);
    if (loop !== undefined && !(cut !== undefined && cut.start < loop.end)) {
      played.add(loop);
      index = barIndexAt(bars, loop.start);
      from = loop.start;
    } else if (cut !== undefined) {
      if (cut.end >= song.endTick) break;
      index = barIndexAt(bars, cut.end);
      from = cut.end;
    } else {
      index += 1;
      from = bar.end;
    }
  }
  return order;
}

/** The sheet after this one, along the bars of `order`; null where the music stays. `sheetOf(bar index)`. */
export function nextSheet(order, sheetOf, current) {
  const next = order.find((index) => sheetOf(index) !== current);
  return next === undefined ? null : sheetOf(next);
}

/**
 * What two places show, one beside or below the other: the sheet that sounds stays where it is, and the other place shows the one that
 * comes next. `shown` is what they show so far, `next` may be null.
 */
export function turnSheets(shown, current, next) {
  const place = Math.max(shown.indexOf(current), 0);
  const kept = shown[1 - place];
  const other = next ?? (kept === current ? null : kept);
  return place === 0 ? [current, other] : [other, current];
}

/** The place in a bar, 0 to 1 of its width, by onsets: [{quarters, x}] that ascend from the bar's beginning to its end. */
export function interpolate(onsets, quarters) {
  const after = onsets.findIndex((onset) => onset.quarters > quarters);
  if (after < 0) return onsets.at(-1).x;
  if (after === 0) return onsets[0].x;
  const [one, other] = [onsets[after - 1], onsets[after]];
  return one.x + ((quarters - one.quarters) / (other.quarters - one.quarters)) * (other.x - one.x);
}
