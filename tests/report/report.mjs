// Makes reports with the tool, and opens them in a browser.
import { execFile } from 'node:child_process';
import { mkdtemp, rm } from 'node:fs/promises';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { pathToFileURL } from 'node:url';
import { promisify } from 'node:util';

// Packages are installed in the build folder, not beside this file.
const packages = process.env.XMLA_NODE_PACKAGES ?? path.resolve('build/node');
const require = createRequire(path.join(packages, 'package.json'));
const { default: puppeteer } = await import(pathToFileURL(require.resolve('puppeteer-core')).href);
export const axeSource = require.resolve('axe-core/axe.min.js');

export const tool = process.env.XMLA_IMPORT_TOOL ?? path.resolve('build/bin/xmla-import');
const chromium = process.env.XMLA_CHROMIUM ?? '/usr/bin/chromium';

/** A folder that is deleted when `use` ends. */
export async function withFolder(use) {
  const folder = await mkdtemp(path.join(tmpdir(), 'report-'));
  try {
    return await use(folder);
  } finally {
    await rm(folder, { recursive: true, force: true });
  }
}

/** Runs the tool. Returns standard output; throws for a status that is not in `statuses`. */
export async function runTool(options, statuses = [0]) {
  try {
    return (await promisify(execFile)(tool, ['--quiet', ...options], { maxBuffer: 1 << 30 })).stdout;
  } catch (error) {
    if (statuses.includes(error.code)) return error.stdout;
    throw error;
  }
}

/** Starts a browser, which ends with this process, even if that is killed: it ends when the pipe closes. */
export async function launch() {
  return puppeteer.launch({ executablePath: chromium, pipe: true, args: ['--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage'] });
}

/**
 * Opens a file of disk. The page's `problems` get everything that must not happen: messages on the console, exceptions, dialogs,
 * and requests of anything but the file itself.
 */
export async function open(browser, file, options = {}) {
  const page = await browser.newPage();
  page.problems = [];
  const note = (what, text) => page.problems.push(`${what}: ${text}`);
  page.on('console', message => note('console', message.text()));
  page.on('pageerror', error => note('exception', error.message));
  page.on('dialog', async dialog => { note('dialog', dialog.message()); await dialog.dismiss(); });
  const url = pathToFileURL(file).href;
  page.on('request', request => {
    if (request.url().split('#')[0] !== url) note('request', request.url());
  });
  browser.on('targetcreated', target => { if (target.opener() === page.target()) note('window', target.url()); });
  if (options.scheme) await page.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: options.scheme }]);
  if (options.width) await page.setViewport({ width: options.width, height: 900 });
  if (options.javaScript === false) await page.setJavaScriptEnabled(false);
  await page.goto(url + (options.address ?? ''));
  return page;
}

/** Goes to another address within the report. */
export async function go(page, address) {
  await page.evaluate(hash => { location.hash = hash; }, address);
  await page.evaluate(() => new Promise(resolve => setTimeout(resolve)));
}

/** The addresses of all pages, from the links of the pages themselves. */
export async function allAddresses(page) {
  const found = new Set(['#/']);
  for (const address of found) {
    await go(page, address);
    const links = await page.$$eval('a[href^="#/"]', anchors => anchors.map(anchor => anchor.getAttribute('href')));
    links.filter(link => !link.includes('/hierarchy/')).forEach(link => found.add(link));
  }
  return [...found];
}
