// Repositories in memory, written by another implementation, honest or not.
import { createHash, generateKeyPairSync, sign } from 'node:crypto';
import canonical from '@tufjs/canonical-json';
import models from '@tufjs/models';

const { Key, MetaFile, Metadata, Root, Signature, Snapshot, TargetFile, Targets, Timestamp } = models;
const year = 365 * 86400;

export const roles = ['root', 'timestamp', 'snapshot', 'targets'];
export const targetPath = 'content/CVE-1.xml';

const sha256 = (bytes) => createHash('sha256').update(bytes).digest('hex');
const timeText = (seconds) => new Date(Date.now() + seconds * 1000).toISOString().replace(/\.\d+Z$/, 'Z');

export function makeKey() {
  const { privateKey, publicKey } = generateKeyPairSync('ed25519');
  const keyVal = { public: publicKey.export({ format: 'der', type: 'spki' }).subarray(12).toString('hex') };
  const plain = { keytype: 'ed25519', scheme: 'ed25519', keyval: keyVal };
  const keyID = sha256(canonical.canonicalize(plain));
  return { privateKey, key: new Key({ keyID, keyType: 'ed25519', scheme: 'ed25519', keyVal }) };
}

// Two for each role.
const standardKeys = Object.fromEntries(roles.map((role) => [role, [makeKey(), makeKey()]]));

export class Repository {
  files = new Map();
  keys = Object.fromEntries(roles.map((role) => [role, [...standardKeys[role]]]));
  versions = { root: 1, timestamp: 5, snapshot: 5, targets: 5 };
  lifetimes = Object.fromEntries(roles.map((role) => [role, year]));
  // Who signs; by default everybody who may.
  signers = {};
  // Roles whose file is of another kind, properly signed.
  kinds = {};
  // Signatures that are only noise, by role.
  noise = {};
  content = 'first';

  constructor(threshold = 1) {
    this.threshold = threshold;
    this.publish();
  }

  fields(role) {
    return { version: this.versions[role], specVersion: '1.0.31', expires: timeText(this.lifetimes[role]) };
  }

  // The bytes of a role's file.
  signed(role, content) {
    const metadata = new Metadata(content);
    for (const { privateKey, key } of this.signers[role] ?? this.keys[role])
      metadata.sign((data) => new Signature({ keyID: key.keyID, sig: sign(null, data, privateKey).toString('hex') }));
    for (const { key } of this.noise[role] ?? [])
      metadata.signatures[key.keyID] = new Signature({ keyID: key.keyID, sig: '00'.repeat(64) });
    return Buffer.from(JSON.stringify(metadata.toJSON()));
  }

  root() {
    const root = new Root({ ...this.fields('root'), consistentSnapshot: true });
    for (const role of roles) {
      for (const { key } of this.keys[role]) root.addKey(key, role);
      root.roles[role].threshold = this.threshold;
    }
    return root;
  }

  targets() {
    const bytes = Buffer.from(this.content), targets = new Targets(this.fields('targets'));
    targets.addTarget(new TargetFile({ path: targetPath, length: bytes.length, hashes: { sha256: sha256(bytes) } }));
    this.files.set(`content/${sha256(bytes)}.CVE-1.xml`, bytes);
    return targets;
  }

  listed(role) {
    const bytes = this.files.get(this.nameOf(role));
    return new MetaFile({ version: this.versions[role], length: bytes.length, hashes: { sha256: sha256(bytes) } });
  }

  contentOf(role) {
    const kind = this.kinds[role] ?? role;
    if (kind === 'root') return this.root();
    if (kind === 'targets') return this.targets();
    if (kind === 'snapshot')
      return new Snapshot({ ...this.fields(role), meta: { 'targets.json': this.listed('targets') } });
    return new Timestamp({ ...this.fields(role), snapshotMeta: this.listed('snapshot') });
  }

  // Its version is that in its name, whatever it says itself.
  nameOf(role, version = this.versions[role]) {
    return `metadata/${role === 'timestamp' ? '' : `${version}.`}${role}.json`;
  }

  write(role, version) {
    this.files.set(this.nameOf(role, version), this.signed(role, this.contentOf(role)));
  }

  publish() {
    for (const role of ['root', 'targets', 'snapshot', 'timestamp']) this.write(role);
  }

  // What a next publication is made of; publish writes it.
  advance() {
    for (const role of roles) ++this.versions[role];
    this.content = 'second';
  }
}
