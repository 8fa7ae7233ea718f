// The program mirevo, as people and scripts call it.
import assert from 'node:assert/strict';
import { execFile, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { build, eventually, media, processesWith, Service } from './support.mjs';

const program = path.join(build, 'target/bin/mirevo');
const film = path.join(media, 'h264_ac3.mkv');
let service;
let films; // a writable folder

before(async () => {
  service = await Service.start([media]);
  films = path.join(service.root, 'films');
  fs.mkdirSync(path.join(films, 'sub/@ea'), { recursive: true });
});

after(() => service.stop());

// Runs a command to its end, in the service's system root or in another one.
function mirevo(options, root = service.root) {
  return new Promise((resolve) => {
    execFile(program, options, { env: { ...process.env, ORVO_SYSROOT: root } }, (error, stdout, stderr) =>
      resolve({ code: error ? error.code : 0, stdout, stderr }),
    );
  });
}

async function json(options) {
  const { code, stdout, stderr } = await mirevo([...options, '--json']);
  return { code, stderr, data: stdout ? JSON.parse(stdout) : undefined };
}

// The commands and their long options from the help.
async function helpOf(command) {
  const { stdout } = await mirevo([...command, '--help']);
  return {
    commands: [...(stdout.split('Subcommands:\n')[1] ?? '').matchAll(/^ {2}(\w+) /gm)].map(([, name]) => name),
    options: [...stdout.matchAll(/^ {2}(?:-\w,)?(--[\w-]+)/gm)].map(([, name]) => name),
  };
}

test('probe prints the metadata document', async () => {
  const { data } = await json(['probe', film]);
  assert.equal(data.path, fs.realpathSync(film));
  assert.equal(data.track_info.video[0].codec, 'h264');
  assert.equal((await mirevo(['probe', film])).stdout, (await mirevo(['probe', '--json', film])).stdout);
});

test('probe prints a table for people', async () => {
  const { stdout } = await mirevo(['probe', '--table', path.join(media, 'two_audio.mkv')]);
  assert.match(stdout, /^Duration +1:00$/m);
  assert.match(stdout, /^1 +audio +ac3 +eng +2 channels 48000 Hz$/m);
});

test('explain shows what is offered on one screen, and the command of one profile', async () => {
  const { code, stdout } = await mirevo(['explain', film, '--device', 'firefox']);
  assert.equal(code, 0);
  assert.match(stdout, /Firefox cannot play/);
  assert.match(stdout, /^\* +http +http_mp4_remux +remux +640x360/m);
  assert.doesNotMatch(stdout, /1080p| runs$/m);
  assert.ok(stdout.length < 6000, `${stdout.length} bytes`);
  const one = (await mirevo(['explain', film, '--profile', 'http_mp4_1080p_vb5000_ab192'])).stdout;
  assert.match(one, /^http_mp4_1080p_vb5000_ab192 runs\n +\S+bin\/ffmpeg -ss .* pipe:1\nwhich becomes\n +\/usr\/bin\/ffmpeg /m);
  assert.doesNotMatch(one, /STREAM_ID.*STREAM_ID/);
});

test('explain shows one profile, of one format', async () => {
  const { data } = await json(['explain', film, '--format', 'hls', '--profile', 'hls_remux']);
  assert.deepEqual(data.profiles.map(({ key }) => key), ['hls_remux']);
  assert.equal((await mirevo(['explain', film, '--profile', 'nonsense'])).code, 1);
});

test('play prints an address in which any player can seek', async () => {
  const rows = [
    [['h264_aac.mp4'], 'direct'],
    [['h264_ac3.mkv'], 'hls'],
    [['h264_ac3.mkv', '--device', 'vlc'], 'direct'],
    [['h264_aac.mp4', '--audio', '1'], 'hls'],
    [['h264_aac.mp4', '--profile', 'http_mp4_remux'], 'http'],
    [['h264_aac.mp4', '--format', 'http'], 'http'],
    [['no_audio.mkv'], 'http'],
  ];
  for (const [[name, ...options], format] of rows) {
    const { data, stderr } = await json(['play', path.join(media, name), ...options]);
    assert.equal(data?.format, format, `${name} ${options} ${stderr}`);
    await service.call('Streaming', 'close', { format, stream_id: data.stream_id });
  }
});

test('play prints an address that plays', async () => {
  const { code, stdout } = await mirevo(['play', film]);
  assert.equal(code, 0);
  assert.match(await (await fetch(stdout.trim())).text(), /^#EXTM3U/);
  await service.call('Streaming', 'close', { format: 'hls', stream_id: new URL(stdout).searchParams.get('stream_id') });
});

test('play reports the reason of a failure', async () => {
  const outside = path.join(service.root, 'outside.mkv');
  fs.copyFileSync(film, outside);
  const rows = [
    [[path.join(media, 'text.mkv')], 1, /not a film/],
    [[outside], 77, /outside the media folders/],
    [['/no/such/film.mkv'], 66, /no such file/],
    [[film, '--profile', 'nonsense'], 64, /no profile with this name/],
    [[film, '--format', 'nonsense'], 64, /nonsense/],
  ];
  for (const [options, code, message] of rows) {
    const answer = await mirevo(['play', ...options]);
    assert.equal(answer.code, code, answer.stderr);
    assert.match(answer.stderr, message);
    assert.equal(answer.stdout, '');
  }
});

test('without a service, play and status explain how to start one', async () => {
  const empty = path.join(service.root, 'empty');
  fs.mkdirSync(path.join(empty, 'run/mirevo'), { recursive: true });
  for (const options of [['play', film], ['status']]) {
    const { code, stderr } = await mirevo(options, empty);
    assert.equal(code, 69);
    assert.match(stderr, /mirevo serve/);
  }
  // A killed service leaves its address behind.
  fs.writeFileSync(path.join(empty, 'run/mirevo/address'), 'http://127.0.0.1:1/\n');
  assert.equal((await mirevo(['status'], empty)).code, 69);
});

test('status prints the service\'s answer', async () => {
  const { data } = await json(['status']);
  assert.deepEqual(Object.keys(data), Object.keys((await service.call('Status', 'get')).data));
  assert.match((await mirevo(['status'])).stdout, /^0 streams, 0 transcoders/m);
});

test('analyze processes a folder in parallel and skips current films', async () => {
  for (const name of ['h264_aac.mp4', 'mpeg2_mp2.ts']) fs.copyFileSync(path.join(media, name), path.join(films, name));
  fs.copyFileSync(film, path.join(films, 'sub/a.mkv'));
  for (const odd of ['sub/@ea/hidden.mkv', '.hidden.mkv', 'notes.txt']) fs.writeFileSync(path.join(films, odd), 'x');
  const states = ({ data }) => Object.fromEntries(data.films.map((entry) => [path.basename(entry.path), entry.state]));

  const first = await json(['analyze', films, '--jobs', '3']);
  assert.equal(first.code, 0);
  assert.deepEqual(states(first), { 'h264_aac.mp4': 'analyzed', 'mpeg2_mp2.ts': 'analyzed', 'a.mkv': 'analyzed' });
  assert.ok(first.data.films.every(({ keyframes }) => keyframes > 10));

  const later = new Date(Date.now() + 5000);
  fs.utimesSync(path.join(films, 'sub/a.mkv'), later, later);
  const second = await json(['analyze', films]);
  assert.deepEqual(states(second), { 'h264_aac.mp4': 'current', 'mpeg2_mp2.ts': 'current', 'a.mkv': 'analyzed' });
  assert.equal((await json(['analyze', films, '--force'])).data.analyzed, 3);
});

test('analyze reports a file that is not a film and continues', async () => {
  const bad = path.join(films, 'bad.mkv');
  fs.writeFileSync(bad, 'This is no film.\n');
  const { code, data } = await json(['analyze', bad, path.join(films, 'mpeg2_mp2.ts'), '--force']);
  fs.rmSync(bad);
  assert.equal(code, 1);
  assert.deepEqual([data.failed, data.analyzed], [1, 1]);
  assert.ok(data.films.find(({ path: name }) => name === fs.realpathSync(films) + '/bad.mkv').reason);
  assert.equal((await mirevo(['analyze', '/no/such/folder'])).code, 66);
});

test('an interrupted analysis leaves no process and no unfinished file', async () => {
  // Reading this film takes a second; the worker is stopped in it.
  const long = path.join(films, 'much.ts');
  const part = fs.readFileSync(path.join(media, 'mpeg2_mp2.ts'));
  for (let count = 0; count < 20; count += 1) fs.appendFileSync(long, part);
  const analysis = spawn(program, ['analyze', '--json', long], {
    env: { ...process.env, ORVO_SYSROOT: service.root },
    stdio: ['ignore', 'pipe', 'ignore'],
  });
  const workers = () => processesWith(`--report ${long}`);
  const { pid } = await eventually(() => workers()[0]);
  process.kill(pid, 'SIGSTOP');
  analysis.kill('SIGINT');
  const output = (await analysis.stdout.toArray()).join('');
  if (analysis.exitCode === null) await once(analysis, 'exit');
  fs.rmSync(long);
  assert.equal(analysis.exitCode, 1);
  assert.equal(JSON.parse(output).interrupted, true);
  assert.deepEqual(workers(), []);
});

test('doctor finds nothing missing on this machine', async () => {
  const { code, data } = await json(['doctor']);
  assert.equal(code, 0, JSON.stringify(data.findings.filter(({ state }) => state === 'missing')));
  assert.equal(data.ok, true);
  assert.ok(data.findings.every(({ state, remedy }) => (state === 'ok') === (remedy === '')));
});

test('doctor names what is missing and the remedy', async () => {
  const bare = path.join(service.root, 'bare');
  fs.mkdirSync(bare);
  const { code, stdout } = await mirevo(['doctor'], bare);
  assert.equal(code, 1);
  assert.match(stdout, /^missing +file webapi\/entry\.cgi .* does not exist +Install the package/m);
  assert.match(stdout, /^missing +profiles /m);
  assert.match(stdout, /^missing +volumes /m);
  assert.doesNotMatch(stdout, /^ok /m);
  assert.deepEqual(fs.readdirSync(bare), [], 'and changes nothing');
});

test('wrong command lines have an exit status of their own', async () => {
  for (const options of [[], ['nonsense'], ['probe'], ['probe', film, '--nonsense'], ['serve', '--port', '70000', film]]) {
    assert.equal((await mirevo(options)).code, 64, options.join(' '));
  }
  assert.match((await mirevo(['--version'])).stdout, /^mirevo \d+\.\d+\.\d+\n$/);
});

test('a word that is no command is named', async () => {
  for (const options of [['bogus'], ['--config', '/dev/null', 'bogus', film]]) {
    assert.deepEqual(await mirevo(options), {
      code: 64,
      stdout: '',
      stderr: 'mirevo: there is no command "bogus"; mirevo --help lists the commands\n',
    });
  }
});

test('serve says which media it does not find and which folder it cannot write', async () => {
  const serve = (root, folder) => mirevo(['serve', '--no-browser', '--no-analysis', '--port', '0', folder], root);
  const root = path.join(service.root, 'refused');
  fs.mkdirSync(root);
  const missing = await serve(root, '/no/such/folder');
  assert.deepEqual([missing.code, missing.stderr], [66, '/no/such/folder: No such file or directory\n']);
  const isRefused = async (reason) => {
    const { code, stderr } = await serve(root, media);
    assert.equal(code, 73, stderr);
    assert.match(stderr, reason);
    assert.match(stderr, /\nSet ORVO_SYSROOT to a folder that belongs to you, or .*\.\n$/);
  };
  fs.rmSync(path.join(root, 'run'), { recursive: true });
  fs.writeFileSync(path.join(root, 'run'), '');
  await isRefused(/^The service cannot keep its state in \S+\/run\/mirevo: File exists\n/);
  fs.rmSync(path.join(root, 'run'));
  fs.mkdirSync(path.join(root, 'var/packages/Mirevo/etc/media_roots'), { recursive: true });
  await isRefused(/^The service cannot keep its state in \S+\/etc: Is a directory\n/);
});

test('serve tells a service manager when it is ready', async () => {
  const root = path.join(service.root, 'managed');
  ['etc.defaults', 'volume1', 'var/packages/Mirevo'].forEach((name) => fs.mkdirSync(path.join(root, name), { recursive: true }));
  fs.symlinkSync(path.join(build, 'target'), path.join(root, 'var/packages/Mirevo/target'));
  // A service manager: it waits for the notification, then requests the page.
  const manager = `
import os, signal, socket, subprocess, sys, urllib.request
inbox = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
inbox.bind(os.environ["NOTIFY_SOCKET"])
inbox.settimeout(60)
service = subprocess.Popen(sys.argv[1:], stdout=subprocess.DEVNULL)
lines = inbox.recv(1000).decode().splitlines()
page = urllib.request.urlopen(lines[1].rpartition(" ")[2]).status
service.send_signal(signal.SIGTERM)
print(lines[0], page, service.wait())
`;
  const { stdout } = await new Promise((resolve) =>
    execFile('python3', ['-c', manager, program, 'serve', '--no-browser', '--no-analysis', '--port', '0', media],
      { env: { ...process.env, ORVO_SYSROOT: root, NOTIFY_SOCKET: path.join(root, 'notify') } },
      (error, out) => resolve({ stdout: out })));
  assert.equal(stdout, 'READY=1 200 0\n');
});

test('serve reads options from a file and refuses unknown ones', async () => {
  const file = path.join(service.root, 'mirevo.conf');
  fs.writeFileSync(file, '[serve]\nnonsense = 1\n');
  assert.equal((await mirevo(['serve', '--config', file, film])).code, 64);
  // The second service is refused, but only after its options were accepted.
  fs.writeFileSync(file, `[serve]\nmedia = ["${media}"]\nport = 0\n`);
  const { code, stderr } = await mirevo(['--config', file, 'serve', '--no-browser', '--no-analysis']);
  assert.equal(code, 1);
  assert.match(stderr, /already serves/);
});

test('the manual and the completions contain every command and option', async () => {
  const manual = fs.readFileSync(path.join(build, 'mirevo.1'), 'utf8').replaceAll('\\-', '-');
  const completions = ['bash', 'zsh', 'fish'].map((shell) =>
    fs.readFileSync(path.join(build, 'completion', shell), 'utf8'));
  const { commands } = await helpOf([]);
  assert.ok(commands.length > 5);
  for (const command of commands) {
    assert.match(manual, new RegExp(`^\\.SS mirevo ${command}\\b`, 'm'));
    for (const option of (await helpOf([command])).options) {
      assert.ok(manual.includes(option), `${command} ${option} in the manual`);
      for (const completion of completions) {
        assert.ok(completion.includes(option.slice(2)), `${command} ${option} completed`);
      }
    }
  }
});

test('the bash completion completes', async () => {
  const script = `source '${build}/completion/bash'; COMP_WORDS=(mirevo explain --de); COMP_CWORD=2; _mirevo;
    echo "\${COMPREPLY[*]}"; COMP_WORDS=(mirevo an); COMP_CWORD=1; _mirevo; echo "\${COMPREPLY[*]}"`;
  const { stdout } = await new Promise((resolve) =>
    execFile('bash', ['-c', script], (error, out) => resolve({ stdout: out })));
  assert.equal(stdout, '--device\nanalyze\n');
});

// Runs a program as on a machine without FFmpeg: a file that nobody may execute hides it.
function withoutFFmpeg(words, options) {
  const hide = 'mount --bind /dev/null /usr/bin/ffmpeg && exec "$@"';
  return spawn('unshare', ['--mount', '--map-root-user', 'sh', '-c', hide, 'sh', ...words], options);
}

test('a machine without FFmpeg says so at the start and to whoever plays a film', async () => {
  const own = Service.prepare();
  const served = withoutFFmpeg([path.join(build, 'target/bin/mirevo-serve'), '--no-browser', '--port', '0', '--no-analysis', '--', media], {
    env: own.environment,
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  let told = '';
  served.stderr.on('data', (text) => {
    told += text;
  });
  await eventually(() => (told.includes('FFmpeg is missing (/usr/bin/ffmpeg)') ? true : undefined));
  const { code, stdout, stderr } = await mirevo(['play', film, '--format', 'hls'], own.root);
  assert.deepEqual([code, stdout, stderr], [69, '', 'mirevo: FFmpeg is missing on the server. It is in the package ffmpeg.\n']);
  served.kill('SIGTERM');
  const [status] = await once(served, 'exit');
  assert.equal(status, 0);
  fs.rmSync(own.root, { recursive: true });
});
