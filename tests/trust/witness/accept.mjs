// Ends with 0 when a client of another implementation accepts a repository and gets each content file as it is.
// usage: accept.mjs REPOSITORY CLIENT    CLIENT: directory of a client that follows the repository over time
import { copyFileSync, existsSync, mkdirSync, mkdtempSync, readFileSync, readdirSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { Updater } from 'tuf-js';
import { serve } from './server.mjs';

const [repository, following] = process.argv.slice(2);
const mostFiles = 40;

async function update(url, directory) {
  const metadataDir = join(directory, 'metadata'), targetDir = join(directory, 'targets');
  for (const made of [metadataDir, targetDir]) mkdirSync(made, { recursive: true });
  const root = join(metadataDir, 'root.json');
  if (!existsSync(root)) copyFileSync(join(repository, 'metadata/1.root.json'), root);
  const updater = new Updater({
    metadataDir, metadataBaseUrl: `${url}/metadata`, targetDir, targetBaseUrl: url, config: { fetchRetries: 0 },
  });
  await updater.refresh();
  const names = readdirSync(join(repository, 'content')).filter((name) => /^C[VC]E-.*\.xml$/.test(name));
  if (names.length === 0) throw new Error('the repository has no content');
  for (const name of names.slice(0, mostFiles)) {
    const path = `content/${name}`, target = await updater.getTargetInfo(path);
    if (!target) throw new Error(`${path} is not listed`);
    const file = await updater.downloadTarget(target, join(targetDir, name));
    if (!readFileSync(file).equals(readFileSync(join(repository, path)))) throw new Error(`${path} differs`);
  }
  if (await updater.getTargetInfo('content/CVE-none.xml')) throw new Error('what is not there is listed');
  return names.length;
}

const server = await serve((path) => {
  const file = join(repository, path);
  return existsSync(file) ? readFileSync(file) : null;
});
const fresh = mkdtempSync(join(tmpdir(), 'zelor-witness-'));
try {
  await update(server.url, fresh);
  const count = await update(server.url, following);
  console.log(`accepted, ${count} content files`);
} catch (error) {
  console.log(`refused: ${error.message}`);
  process.exitCode = 1;
} finally {
  rmSync(fresh, { recursive: true });
  server.stop();
}
