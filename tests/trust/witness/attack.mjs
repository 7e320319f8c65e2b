// Attacks a client with repositories that another implementation wrote: 8 attacks on each of 4 roles. Every attack must
// end with status 1 and a reason, and leave what was known; every honest publication must be accepted.
// usage: attack.mjs CLIENT-PROGRAM
import { execFile } from 'node:child_process';
import { cpSync, existsSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { Repository, makeKey, roles, targetPath } from './repository.mjs';
import { serve } from './server.mjs';

const program = process.argv[2];
const far = 2 ** 31;
const otherOf = (role) => (role === 'targets' ? 'snapshot' : 'targets');

// Each changes the next publication of a repository and writes it. The attacker has no keys but those that it says.
const attacks = {
  rollback(repository, role) {
    if (role === 'root') {
      repository.publish();
      repository.versions.root = 1;
      repository.write('root', 2);
      return;
    }
    repository.versions[role] = 4;
    repository.publish();
  },
  freeze(repository, role) {
    repository.lifetimes[role] = -3600;
    repository.publish();
  },
  'mix-and-match'(repository, role) {
    repository.publish();
    if (role === 'root') {
      for (const one of roles) repository.keys[one] = [makeKey(), makeKey()];
      repository.publish();
    } else if (role === 'timestamp') {
      const name = repository.nameOf('snapshot'), snapshot = repository.files.get(name);
      repository.lifetimes.snapshot += 1000;
      repository.write('snapshot');
      repository.write('timestamp');
      repository.files.set(name, snapshot);
    } else {
      // Another file of the same version, signed by the role's own keys.
      repository.lifetimes[role] += 1000;
      repository.content = 'other!';
      repository.write(role);
    }
  },
  'endless data'(repository, role) {
    repository.publish();
    repository.files.set(repository.nameOf(role), 'endless');
  },
  'wrong file'(repository, role) {
    repository.kinds[role] = role === 'targets' ? 'root' : 'targets';
    repository.publish();
  },
  'wrong signer'(repository, role) {
    repository.signers[role] = repository.keys[otherOf(role)];
    repository.publish();
  },
  threshold(repository, role) {
    repository.signers[role] = repository.keys[role].slice(0, 1);
    repository.noise[role] = repository.keys[role].slice(1);
    repository.publish();
  },
};

class Client {
  directory = mkdtempSync(join(tmpdir(), 'zelor-witness-'));

  run(words) {
    return new Promise((done) => {
      const all = ['--metadata-dir', join(this.directory, 'metadata'), ...words];
      execFile(program, all, { timeout: 60000 }, (error, _, errors) => done({ status: error ? error.code : 0, errors }));
    });
  }
  init(repository) {
    const root = join(this.directory, 'first.json');
    writeFileSync(root, repository.files.get('metadata/1.root.json'));
    return this.run(['init', root]);
  }
  async update(repository) {
    const server = await serve((path) => repository.files.get(path) ?? null);
    try {
      return await this.run(['--metadata-url', `${server.url}/metadata`, '--target-name', targetPath,
                             '--target-base-url', server.url, '--target-dir', join(this.directory, 'targets'), 'download']);
    } finally {
      server.stop();
    }
  }
  kept(role) {
    return readFileSync(join(this.directory, 'metadata', `${role}.json`), 'utf8');
  }
  content() {
    const file = join(this.directory, 'targets', encodeURIComponent(targetPath));
    return existsSync(file) ? readFileSync(file, 'utf8') : '';
  }
  copy() {
    const other = new Client();
    cpSync(this.directory, other.directory, { recursive: true });
    return other;
  }
  remove() {
    rmSync(this.directory, { recursive: true });
  }
}

const faults = [];
let checked = 0;

function expect(good, name, what) {
  ++checked;
  if (!good) faults.push(`${name}: ${what}`);
}

async function expectAccepted(name, client, repository) {
  const { status, errors } = await client.update(repository);
  expect(status === 0, name, `the honest repository is refused: ${errors}`);
  expect(client.content() === repository.content, name, 'the honest content did not arrive');
}

async function expectRefused(name, client, repository, role) {
  const content = client.content(), kept = client.kept(role);
  const { status, errors } = await client.update(repository);
  console.log(`${name}: ${errors.trim()}`);
  expect(status === 1, name, `accepted, or crashed: status ${status}`);
  // A timestamp that names another snapshot is itself in order; what it names is refused.
  const named = name.startsWith('mix-and-match') && role === 'timestamp' ? 'snapshot' : role;
  expect(errors.includes(named), name, `the reason does not name ${named}: ${errors}`);
  expect(client.content() === content, name, 'the content changed');
  // A root is kept before it is known to have expired, since the next one may follow it.
  if (named === role && name !== 'freeze, root') expect(client.kept(role) === kept, name, 'what was known is lost');
}

async function attack(kind, role) {
  const name = `${kind}, ${role}`, threshold = kind === 'threshold' ? 2 : 1;
  const client = new Client(), first = new Repository(threshold);
  await client.init(first);
  await expectAccepted(name, client, first);
  const honest = new Repository(threshold);
  honest.advance();
  honest.publish();
  const follower = client.copy();
  await expectAccepted(name, follower, honest);
  const attacked = new Repository(threshold);
  attacked.advance();
  attacks[kind](attacked, role);
  await expectRefused(name, client, attacked, role);
  // The refusal does no harm to the next publication.
  honest.advance();
  honest.content = 'third';
  honest.publish();
  await expectAccepted(name, client, honest);
  client.remove();
  follower.remove();
}

// An attacker with the keys of a role jumps to a version that honest files never reach.
async function fastForward(role) {
  const name = `fast-forward recovery, ${role}`;
  const client = new Client(), jumped = new Repository();
  await client.init(jumped);
  await expectAccepted(name, client, jumped);
  if (role === 'root') {
    jumped.versions.root = far;
    jumped.write('root', 2);
    await expectRefused(name, client, jumped, role);
  } else {
    jumped.versions[role] = far;
    for (const one of roles.slice(1)) if (one !== role) ++jumped.versions[one];
    jumped.publish();
    await expectAccepted(name, client, jumped);
  }
  const recovered = new Repository();
  recovered.advance();
  recovered.versions.root = 1;
  for (const one of roles.slice(1)) recovered.versions[one] += 5;
  recovered.publish();
  if (role !== 'root') await expectRefused(name, client, recovered, role);
  recovered.versions.root = 2;
  for (const one of roles.slice(1)) recovered.keys[one] = [makeKey()];
  recovered.publish();
  await expectAccepted(name, client, recovered);
  client.remove();
}

// The bytes of a target are other ones of the same length.
async function wrongTarget() {
  const client = new Client(), repository = new Repository();
  await client.init(repository);
  for (const [path, bytes] of repository.files) if (path.startsWith('content/')) repository.files.set(path, Buffer.alloc(bytes.length));
  const { status } = await client.update(repository);
  expect(status === 1 && client.content() === '', 'wrong file, target', 'accepted');
  client.remove();
}

for (const role of roles) {
  for (const kind of Object.keys(attacks)) await attack(kind, role);
  await fastForward(role);
}
await wrongTarget();
console.log(`${roles.length * (Object.keys(attacks).length + 1)} attacks, ${checked} checks, ${faults.length} faults`);
for (const fault of faults) console.log(`FAULT ${fault}`);
process.exitCode = faults.length === 0 ? 0 : 1;
