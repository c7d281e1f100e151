// Measures the HTML report of a large import in Chromium: 500 cubes with 100,000 levels, properties and measures.
// Call it as ./bench/run report.
import { execFileSync } from 'node:child_process';
import { statSync } from 'node:fs';
import path from 'node:path';

import { serve } from '../tests/report/provider.mjs';
import { launch, runTool, withFolder } from '../tests/report/report.mjs';
import { pathToFileURL } from 'node:url';

const numbered = (count, make) => Array.from({ length: count }, (_, i) => make(i + 1));
const cubes = numbered(500, q => ({
  name: `Cube ${q}`,
  hierarchies: numbered(10, h => ({
    dimension: `Dimension ${Math.ceil(h / 2)}`, name: `Dimension ${Math.ceil(h / 2)}.Hierarchy ${h}`, caption: `Hierarchy ${h} of ${q}`,
    levels: numbered(5, l => ({ name: `Level ${l}`, caption: `Level ${l} of hierarchy ${h}`, properties: numbered(2, p => ({ name: `Property ${p}` })) })),
  })),
  measures: numbered(50, m => ({ name: `Measure ${m}`, caption: `Measure ${m} of cube ${q}` })),
}));

const median = values => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];
const print = (what, value, unit, target) =>
  console.log(`${what.padEnd(44)} ${value.toFixed(2).padStart(9)} ${unit.padEnd(3)} target ${target} ${unit}: ${value <= target ? 'met' : 'NOT met'}`);

const provider = await serve({ cubes });
await withFolder(async folder => {
  const html = path.join(folder, 'large.html');
  const json = path.join(folder, 'large.json');
  const service = ['--url', provider.url, '--target', 'analysis-services-2008'];
  await runTool([...service, 'import', '--jobs', '2', '-o', html]);
  await runTool([...service, 'import', '--jobs', '2', '-o', json]);
  const compact = Number(execFileSync('sh', ['-c', `jq -c . "${json}" | wc -c`]));
  print('file, in sizes of the compact JSON', statSync(html).size / compact, 'x', 1.6);
  console.log(`${'file'.padEnd(44)} ${(statSync(html).size / 1e6).toFixed(1).padStart(9)} MB`);

  const browser = await launch();
  const firstPages = [];
  for (let i = 0; i < 5; ++i) {
    const page = await browser.newPage();
    const start = performance.now();
    await page.goto(pathToFileURL(html).href);
    await page.waitForSelector('main h1');
    await page.evaluate(() => new Promise(resolve => requestAnimationFrame(() => requestAnimationFrame(resolve))));
    firstPages.push(performance.now() - start);
    if (i < 4) { await page.close(); continue; }
    await page.evaluate(() => new Promise(resolve => setTimeout(resolve, 2000)));
    const timed = (name, values) => page.evaluate(async (kind, inputs) => {
      const times = [];
      for (const input of inputs) {
        const begin = performance.now();
        if (kind === 'search') {
          const field = document.getElementById('search');
          field.value = input;
          field.dispatchEvent(new Event('input'));
        } else {
          const changed = new Promise(resolve => addEventListener('hashchange', resolve, { once: true }));
          location.hash = input;
          await changed;
        }
        document.body.getBoundingClientRect();
        await new Promise(resolve => requestAnimationFrame(() => setTimeout(resolve)));
        times.push(performance.now() - begin);
      }
      return times;
    }, name, values);
    print('answer to a search', median(await timed('search', ['m', 'measure 4', 'hierarchy 7 of 3', 'no such name', 'property 2'])), 'ms', 100);
    print('opening a cube', median(await timed('cube', numbered(9, i => `#/cube/S/C/Cube%20${i * 7}`))), 'ms', 200);
  }
  print('first page', median(firstPages) / 1000, 's', 2);
  await browser.close();
});
await provider.close();
