// Engraves scores, away from the page's own thread: loading one takes seconds. The engraver itself is no part of the page; the
// server has it where it was installed.

import createModule from './engraver/verovio-module.mjs';
import { VerovioToolkit } from './engraver/verovio.mjs';

/** Scores that stay loaded, one part or whole: the song before, the one that is played, the next one. */
const KeptScores = 4;

const Options = {
  adjustPageHeight: true, breaks: 'auto', header: 'none', footer: 'none', mnumInterval: 0,
  // Room for what is pencilled above a system.
  pageMarginTop: 180, pageMarginBottom: 60, pageMarginLeft: 40, pageMarginRight: 40, spacingSystem: 12,
  svgViewBox: true, svgRemoveXlink: true, svgAdditionalAttribute: ['measure@n'], smuflTextFont: 'embedded',
};

let engraver = null;
const scores = new Map();

/** [{id, name}] of a score in parts. */
function listParts(xml) {
  const named = (text) => text.replace(/<[^>]*>/g, '').replace(/&amp;/g, '&').replace(/\s+/g, ' ').trim();
  return [...xml.matchAll(/<score-part\b[^>]*\bid="([^"]*)"[^>]*>([\s\S]*?)<\/score-part>/g)].map(([, id, inside]) => ({
    id, name: named(/<part-name\b[^>]*>([\s\S]*?)<\/part-name>/.exec(inside)?.[1] ?? '') || id,
  }));
}

/** The score with this part alone. */
function takePart(xml, part) {
  const isOther = (text) => !text.slice(0, text.indexOf('>')).includes(`id="${part}"`);
  return xml.replace(/<part-group\b[^>]*>[\s\S]*?<\/part-group>/g, '').replace(/<score-part\b[\s\S]*?<\/score-part>/g, (text) => (isOther(text) ? '' : text))
    .replace(/<part\b(?!-)[\s\S]*?<\/part>/g, (text) => (isOther(text) ? '' : text));
}

/** The measures in their order: {id, onsets: [[quarters after its beginning, id of what begins there]]}. */
function listMeasures(toolkit) {
  const measures = [...toolkit.getMEI().matchAll(/<measure\b[^>]*\bxml:id="([^"]+)"/g)].map(([, id]) => ({ id, onsets: [] }));
  const byId = new Map(measures.map((measure) => [measure.id, measure]));
  let current = null;
  let start = 0;
  for (const { measureOn, qstamp, on, restsOn } of toolkit.renderToTimemap({ includeMeasures: true, includeRests: true })) {
    if (measureOn !== undefined) {
      current = byId.get(measureOn);
      start = qstamp;
    }
    const first = on?.[0] ?? restsOn?.[0];
    if (current && first !== undefined) current.onsets.push([qstamp - start, first]);
  }
  return measures;
}

async function load({ song, part }) {
  const key = `${song}\n${part}`;
  const kept = scores.get(key);
  scores.delete(key);
  const score = kept ?? (await make(song, part));
  scores.set(key, score);
  for (const [oldest, { toolkit }] of scores) {
    if (scores.size <= KeptScores) break;
    toolkit.destroy();
    scores.delete(oldest);
  }
  return score;
}

async function make(song, part) {
  const answer = await fetch(`api/song/${encodeURIComponent(song)}/score.musicxml`);
  if (!answer.ok) throw new Error((await answer.json()).sentence ?? 'The score is not to be had.');
  const xml = await answer.text();
  engraver ??= createModule();
  const toolkit = new VerovioToolkit(await engraver);
  toolkit.setOptions({ ...Options, pageWidth: 2000, pageHeight: 2000 });
  if (!toolkit.loadData(part === '' ? xml : takePart(xml, part))) {
    toolkit.destroy();
    throw new Error(`The score of song ${song} cannot be engraved.`);
  }
  return { toolkit, parts: listParts(xml), measures: listMeasures(toolkit), shape: '', pages: new Map() };
}

/** Breaks the music into sheets of this shape. */
function shapeScore(score, { width, height, scale }) {
  const shape = `${width} ${height} ${scale}`;
  if (score.shape === shape) return;
  score.toolkit.setOptions({ scale, pageWidth: Math.round((width * 100) / scale), pageHeight: Math.round((height * 100) / scale) });
  score.toolkit.redoLayout();
  score.shape = shape;
  score.pages.clear();
  score.sheets = score.measures.map(({ id }) => score.toolkit.getPageWithElement(id));
}

/** Styles within the drawing are not allowed on this page: its rules are the page's own, and a font goes its own way. */
function strip(svg) {
  const font = /@font-face\s*\{[^}]*font-family:\s*'?([\w ]+)'?[^}]*base64,([A-Za-z0-9+/=]+)/.exec(svg);
  return {
    svg: svg.replace(/<style\b[\s\S]*?<\/style>/g, '').replace(/\sstyle="/g, ' data-style="'),
    font: font === null ? null : { name: font[1], data: font[2] },
  };
}

const tasks = {
  async sheets(request) {
    const score = await load(request);
    shapeScore(score, request);
    return { parts: score.parts, measures: score.measures, sheets: score.sheets, count: score.toolkit.getPageCount() };
  },
  async sheet(request) {
    const score = await load(request);
    shapeScore(score, request);
    if (!score.pages.has(request.page)) score.pages.set(request.page, strip(score.toolkit.renderToSVG(request.page)));
    return score.pages.get(request.page);
  },
};

let last = Promise.resolve();
onmessage = ({ data }) => {
  last = last.then(async () => {
    try {
      postMessage({ id: data.id, result: await tasks[data.task](data) });
    } catch (problem) {
      postMessage({ id: data.id, problem: String(problem.message ?? problem) });
    }
  });
};
