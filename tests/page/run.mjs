// Runs the tests of the page, or says in one line why it cannot. Exit code 77: skipped.

import { after } from 'node:test';
import { endAll, findObstacle, runShowTests } from './support.mjs';

const obstacle = await findObstacle();
if (obstacle !== '') {
  console.log(`skipped: ${obstacle}`);
  process.exit(77);
}
await import('./words_test.mjs');
await import('./performance_test.mjs');
await import('./edit_test.mjs');
await import('./connection_test.mjs');
await import('./access_test.mjs');
await import('./score_test.mjs');
runShowTests();
after(endAll);
