// Runs the calls of docs/scale.md: imports from 50 sample providers, queries of the results, and the files for
// containers.
import assert from 'node:assert/strict';
import { execFile, spawn } from 'node:child_process';
import { mkdtemp, readFile, readdir, rm, writeFile } from 'node:fs/promises';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { promisify } from 'node:util';

const run = promisify(execFile);
const require = createRequire(path.join(process.env.XMLA_NODE_PACKAGES, 'package.json'));
const environment = { ...process.env, PATH: `${process.env.XMLA_PROGRAMS}:${process.env.PATH}` };
const document = await readFile('docs/scale.md', 'utf8');
/** The blocks of a language in the document, in order. */
const blocks = language => [...document.matchAll(new RegExp(`\`\`\`${language}\n([^]*?)\`\`\``, 'g'))].map(match => match[1]);

const kinds = ['analysis-services', 'sap-bw', 'tamarind'];
const kServers = 50;
let folder;
let providers = [];

/** Starts a sample provider, which ends with this process, even if that is killed. Returns its URLs by kind. */
function startProvider() {
  const child = spawn('setpriv', ['--pdeathsig', 'KILL', path.join(process.env.XMLA_PROGRAMS, 'xmla-sample-provider')]);
  providers.push(child);
  return new Promise((resolve, reject) => {
    let text = '';
    child.on('exit', () => reject(new Error(`the sample provider ended: ${text}`)));
    child.stdout.on('data', block => {
      text += block;
      const urls = kinds.map(kind => text.match(new RegExp(`http://\\S+/${kind}\n`))?.[0].trim());
      if (urls.every(Boolean)) resolve(urls);
    });
  });
}

/** Runs a block of the document in the folder. Returns its output and status. */
async function shell(script) {
  const options = { cwd: folder, env: { ...environment, XMLA_IMPORT_SERVERS: path.join(folder, 'servers.toml') } };
  try {
    return { ...(await run('bash', ['-c', script], options)), status: 0 };
  } catch (error) {
    return { stdout: error.stdout, stderr: error.stderr, status: error.code };
  }
}

before(async () => {
  folder = await mkdtemp(path.join(tmpdir(), 'fleet-'));
  const tables = await Promise.all(Array.from({ length: kServers }, async (_, i) => {
    const urls = await startProvider();
    const name = i === 2 ? 'sap/bw 100%' : `server ${String(i).padStart(2, '0')}`;
    return `["${name}"]\nurl = "${urls[i % 3]}"\n`;
  }));
  await writeFile(path.join(folder, 'servers.toml'), tables.join('\n'), { mode: 0o600 });
});

after(async () => {
  for (const child of providers) child.removeAllListeners('exit').kill('SIGTERM');
  await rm(folder, { recursive: true, force: true });
});

const lines = async name => (await readFile(path.join(folder, 'imports', name), 'utf8')).trim().split('\n').map(line => JSON.parse(line));

test('GNU parallel imports every server, and its log has the failures', async () => {
  const [importAll, listFailures] = blocks('sh');
  const complete = await shell(importAll);
  assert.equal(complete.status, 0, complete.stderr);
  const files = (await readdir(path.join(folder, 'imports'))).filter(name => name.endsWith('.ndjson'));
  assert.equal(files.length, kServers);
  assert.ok(files.includes('sap%2Fbw 100%25.ndjson'));
  for (const name of files) {
    const read = await lines(name);
    assert.ok(read[0].provider.name, name);
    assert.deepEqual(read.at(-1).errors, [], name);
    assert.ok(read.length > 2, name);
  }
  assert.equal((await shell(listFailures)).stdout, '');

  // The next night, two servers do not answer. Their files stay.
  const former = await readFile(path.join(folder, 'imports/server 03.ndjson'), 'utf8');
  for (const index of [3, 7]) {
    const config = await readFile(path.join(folder, 'servers.toml'), 'utf8');
    const table = `["server 0${index}"]\nurl = "`;
    assert.ok(config.includes(table));
    await writeFile(path.join(folder, 'servers.toml'), config.replace(new RegExp(`(\\["server 0${index}"\\]\nurl = ").*"`), '$1http://127.0.0.1:1/xmla"'));
  }
  const partial = await shell(importAll.replace('--retry 2', '--retry 0'));
  assert.equal(partial.status, 2);
  const failures = (await shell(listFailures)).stdout.trim().split('\n').sort();
  assert.equal(failures.length, 2);
  assert.match(failures[0], /^status 1: .*server\\? 03/);
  assert.match(failures[1], /^status 1: .*server\\? 07/);
  assert.equal(await readFile(path.join(folder, 'imports/server 03.ndjson'), 'utf8'), former);
});

test('DuckDB and Python read the results', async () => {
  const cubes = [];
  for (const name of (await readdir(path.join(folder, 'imports'))).filter(name => name.endsWith('.ndjson')).sort())
    for (const line of await lines(name)) if ('cube' in line) cubes.push({ server: path.parse(name).name, ...line });

  const { DuckDBInstance } = require('@duckdb/node-api');
  const connection = await (await DuckDBInstance.create(':memory:')).connect();
  const query = async text => (await connection.runAndReadAll(text.replaceAll("'imports/", `'${folder}/imports/`))).getRowObjectsJson();
  const [totals, search] = blocks('sql');

  const expected = [...new Set(cubes.map(cube => cube.server))].map(server => {
    const own = cubes.filter(cube => cube.server === server);
    const sum = key => own.reduce((total, cube) => total + cube[key].length, 0);
    return { server, cubes: own.length, hierarchies: sum('hierarchies'), measures: sum('measures') };
  });
  const found = (await query(totals)).map(row => ({ ...row, cubes: Number(row.cubes), hierarchies: Number(row.hierarchies), measures: Number(row.measures) }));
  assert.deepEqual(found, expected);
  assert.equal(found.length, kServers);

  const pattern = 'margin';
  const withMeasure = cubes.filter(cube => cube.measures.some(measure => measure.name.toLowerCase().includes(pattern)));
  const keys = rows => rows.map(row => JSON.stringify([row.server, row.catalog, row.cube])).sort();
  assert.ok(withMeasure.length > 0, 'the sample has no such measure');
  assert.deepEqual(keys(await query(search)), keys(withMeasure));

  const python = `${blocks('python')[0]}print(json.dumps([[cube["catalog"], cube["cube"]] for cube in cubes]))`;
  // Without an encoding, Python would use that of the locale.
  const strict = ['-X', 'warn_default_encoding', '-W', 'error::EncodingWarning'];
  const { stdout } = await run('python3', [...strict, '-c', python], { cwd: folder, maxBuffer: 1 << 26 });
  assert.deepEqual(JSON.parse(stdout), cubes.map(cube => [cube.catalog, cube.cube]));
});

test('import-one imports the server with a number', async () => {
  const script = path.resolve('packaging/fleet/import-one');
  const good = await shell(`mkdir one && ${script} 1 one && ls one`);
  assert.deepEqual([good.status, good.stdout], [0, 'server 01.ndjson\n'], good.stderr);
  for (const [call, message] of [
    [`${kServers} one`, /the server file has no server with the number 50/],
    ['one one', /must be 0, 1, 2 or so on, not "one"/],
    ['08 one', /must be 0, 1, 2 or so on, not "08"/],
    ['"" one', /must be 0, 1, 2 or so on, not ""/],
    ['1', /two arguments are needed: import-one INDEX FOLDER/],
    ['1 none', /cannot be written: the directory "none" does not exist/],
  ]) {
    const wrong = await shell(`${script} ${call}`);
    assert.equal(wrong.status, 2, call);
    assert.match(wrong.stderr, message);
  }
});

test('import-one imports servers whatever their names are', async () => {
  const script = path.resolve('packaging/fleet/import-one');
  const config = await readFile(path.join(folder, 'servers.toml'), 'utf8');
  const [, url] = config.match(/url = "(\S+)"/);
  const names = ['a/b', '../up', 'say "hi"', "it's", 'back\\slash', '100%', 'a%2Fb', '$(x) `y`', '-x', ' Größe ', '*', '"'];
  const tables = names.map(name => `[${JSON.stringify(name)}]\nurl = "${url}"\n`);
  await writeFile(path.join(folder, 'odd.toml'), tables.join(''), { mode: 0o600 });
  const all = await shell(`mkdir odd && export XMLA_IMPORT_SERVERS=$PWD/odd.toml
    for i in $(seq 0 ${names.length - 1}); do ${script} $i odd || exit; done`);
  assert.equal(all.status, 0, all.stderr);
  const files = names.map(name => `${name.replaceAll('%', '%25').replaceAll('/', '%2F')}.ndjson`);
  assert.deepEqual((await readdir(path.join(folder, 'odd'))).sort(), files.sort());
  await writeFile(path.join(folder, 'odd.toml'), '[a');
  const broken = await shell(`XMLA_IMPORT_SERVERS=$PWD/odd.toml ${script} 0 odd`);
  assert.equal(broken.status, 2);
  assert.match(broken.stderr, /^[^\n]*invalid TOML[^\n]*\n$/);
});

/**
 * Validates a CronJob. Returns the keys that its schema does not have. The published validator accepts those: they are
 * the ones that it does not read.
 */
function unknownKeys(manifest) {
  const { CronJob } = require('kubernetes-models/batch/v1');
  const known = new Set();
  const watch = (value, place) => (typeof value !== 'object' || value === null) ? value : new Proxy(value, {
    get(target, key) {
      const member = `${place}/${String(key)}`;
      known.add(member);
      return watch(target[key], member);
    },
  });
  const unknown = (value, place) => (typeof value !== 'object' || value === null) ? [] : Object.keys(value).flatMap(key => {
    const member = `${place}/${key}`;
    return known.has(member) ? unknown(value[key], member) : [member];
  });
  CronJob.prototype.validate.call(watch(manifest, ''));
  return unknown(manifest, '');
}

test('the CronJob is valid', async () => {
  const { load } = require('js-yaml');
  const manifest = load(await readFile('packaging/fleet/cronjob.yaml', 'utf8'));
  assert.deepEqual(unknownKeys(manifest), []);
  const template = manifest.spec.jobTemplate.spec;
  // A container that ends with a status of the tool is not started again: a wrong password could lock the account.
  assert.equal(template.backoffLimit, undefined);
  assert.ok(template.backoffLimitPerIndex <= 2);
  assert.equal(template.template.spec.restartPolicy, 'Never'); // podFailurePolicy needs it
  assert.deepEqual(template.podFailurePolicy.rules, [{
    action: 'FailIndex',
    onExitCodes: { containerName: template.template.spec.containers[0].name, operator: 'In', values: [1, 2, 3] },
  }]);
  // The commands that build the image give it the same tag.
  const { image } = template.template.spec.containers[0];
  for (const file of ['packaging/fleet/Containerfile', 'docs/scale.md']) assert.match(await readFile(file, 'utf8'), new RegExp(`buildah build .*--tag ${image} `), file);

  const changed = (place, value) => {
    const copy = structuredClone(manifest);
    const keys = place.split('/').slice(1);
    const last = keys.pop();
    keys.reduce((parent, key) => parent[key], copy)[last] = value;
    return copy;
  };
  // A value of a wrong type and a misspelled key are found, whatever the value of the key is.
  assert.throws(() => unknownKeys(changed('/spec/jobTemplate/spec/completions', 'many')), /completions must be integer/);
  const pod = '/spec/jobTemplate/spec/template/spec';
  for (const place of [
    '/sepc', '/metadata/nam', '/spec/foo', '/spec/jobTemplate/metdata', '/spec/jobTemplate/spec/paralelism',
    '/spec/jobTemplate/spec/podFailurePolicy/rules/0/onExitCode', '/spec/jobTemplate/spec/podFailurePolicy/rules/0/onExitCodes/value',
    `${pod}/restartpolicy`, `${pod}/securityContext/runAsNonroot`, `${pod}/containers/0/comand`,
    `${pod}/containers/0/env/1/valueFrom/fieldref`, `${pod}/containers/0/resources/limit`,
    `${pod}/containers/0/securityContext/capabilities/drops`, `${pod}/containers/0/volumeMounts/1/readonly`,
    `${pod}/volumes/0/secret/mode`,
  ])
    for (const value of ['text', 3, { name: 'text' }, ['text']]) assert.deepEqual(unknownKeys(changed(place, value)), [place]);
  // Keys of labels and limits are free.
  assert.deepEqual(unknownKeys(changed('/metadata/labels', { 'example.com/team': 'reports' })), []);
  assert.deepEqual(unknownKeys(changed(`${pod}/containers/0/resources/limits/ephemeral-storage`, '1Gi')), []);
});
