// CMAF presentations of many kinds of films, checked by the conformance program. It takes some minutes, so it is a
// command of its own: ORVO_TEST_BUILD=build/ci node --test tests/conformance/kinds.mjs
import assert from 'node:assert/strict';
import { execFile, execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

import { build, Service } from '../service/support.mjs';
import { codecs, kinds, make } from './films.mjs';

const run = promisify(execFile);
const program = fileURLToPath(new URL('cmaf_conformance.py', import.meta.url));
let folder;
let service;

before(async () => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-kinds-'));
  service = await Service.start([folder]);
});
after(async () => {
  await service?.stop();
  fs.rmSync(folder, { recursive: true });
});

async function conforms(stream) {
  try {
    await run('python3', [program, stream.url, stream.dash]);
  } catch (failure) {
    assert.fail(failure.stdout + failure.stderr);
  }
}

for (const [name, kind] of Object.entries(kinds)) {
  const { parts, copies, wishes, refusal } = kind;
  test(refusal ? `${name}: is refused` : `${name}: conforms, copied: ${copies || 'nothing'}`, async () => {
    const film = await make(folder, name, kind);
    if (copies?.includes('picture') || parts.length > 1) {
      execFileSync(path.join(build, 'target/bin/mirevo-analyze'), [film], { env: service.environment });
    }
    const parameters = { format: 'cmaf', codecs, path: film, ...wishes };
    if (refusal) {
      const { error } = await service.call('Streaming', 'open', parameters);
      assert.ok(error?.message.includes(refusal), JSON.stringify(error));
      return;
    }
    const stream = await service.open(film, parameters);
    try {
      const manifest = await (await fetch(stream.dash)).text();
      assert.equal(manifest.includes('"copy-video"'), copies.includes('picture'), manifest);
      assert.equal(manifest.includes('"copy-audio-0"'), copies.includes('sound'), manifest);
      await conforms(stream);
    } finally {
      await service.call('Streaming', 'close', { format: 'cmaf', stream_id: stream.stream_id });
    }
  });
}
