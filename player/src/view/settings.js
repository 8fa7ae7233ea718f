// The owner's settings: media folders, accounts, hardware, limits and the cache, each with what it means.
import { asText, get, post } from '../api.js';
import { element, field, openDialog, table } from '../dom.js';
import { sizeText } from '../format.js';
import { counted, t } from '../language.js';
import { reasonText } from '../reasons.js';
import { refusalText } from '../refusals.js';
import { learnWho, session } from '../session.js';
import { checkbox, passwordField, settingForm } from './forms.js';
import { replaceContent, say } from './page.js';

const change = (method, parameters = {}) => post('Settings', method, parameters);

// `show`, here and below: shows the settings that a change has answered with.
function section(title, about, ...children) {
  return element('section', {}, element('h2', {}, title), element('p', {}, about), children);
}

function action(text, name, click) {
  return element('button', { type: 'button', 'aria-label': `${text} ${name}`, on: { click } }, text);
}

// Runs a change that has no form; its refusal stands at the top of the page.
async function run(method, parameters, show) {
  try {
    say('');
    show(await change(method, parameters));
  } catch (error) {
    say(refusalText(error));
  }
}

function folderRow({ path, added, readable }, show) {
  return [
    path,
    readable ? t('Shown') : t('Cannot be read'),
    added ? action(t('Remove'), path, () => run('remove_folder', { path: asText(path) }, show)) : t('Named where the service is started'),
  ];
}

function foldersSection({ folders }, show) {
  const rows = folders.map((folder) => folderRow(folder, show));
  const add = settingForm(
    t('Add a folder'),
    field(t('Folder on the server'), { name: 'path', placeholder: '/srv/films', autocomplete: 'off', autocapitalize: 'none', spellcheck: false }),
    t('Add the folder'),
    ({ path }) => change('add_folder', { path: asText(path.value) }),
    show,
  );
  return section(
    t('Folders'),
    t('The films in these folders and in the folders below them are shown. Removing a folder here deletes no film.'),
    rows.length > 0 ? table(t('Folders'), [t('Folder'), t('State'), t('Action')], rows) : element('p', {}, t('No folder is shown yet.')),
    add,
  );
}

const pathsOf = ({ folders }, { roots = [] } = {}) => [...new Set([...folders.map(({ path }) => path), ...roots])];

// A box for each folder. No box chosen means all of them.
function rootBoxes(settings, account) {
  const boxes = pathsOf(settings, account).map((path) => checkbox(path, { name: 'root', value: path, checked: account?.roots.includes(path) ?? false }));
  return element('fieldset', {}, element('legend', {}, t('Sees only these folders (none chosen: all)')), boxes);
}

const chosenRoots = (form) => JSON.stringify([...form.querySelectorAll('[name=root]:checked')].map(({ value }) => value));

// A dialog with one form. It closes when the change is done.
function ask(title, children, button, send, show) {
  const form = settingForm(title, children, button, send, (settings) => {
    dialog.close();
    return show(settings);
  });
  const dialog = openDialog(title, form);
}

function askPassword({ name }, show) {
  const title = t('New password of {name}', { name });
  const about = element('p', {}, t('All devices where this account is logged in have to log in again.'));
  ask(title, [about, passwordField(t('New password'))], t('Change the password'), ({ passwd }) => change('set_password', { account: asText(name), passwd: asText(passwd.value) }), async (settings) => {
    await learnWho(); // the owner's own session may have ended
    show(settings);
  });
}

function askRoots(settings, account, show) {
  const boxes = rootBoxes(settings, account);
  ask(t('What {name} sees', { name: account.name }), [boxes], t('Save'), () => change('set_roots', { account: asText(account.name), roots: chosenRoots(boxes) }), show);
}

async function removed(name, settings, show) {
  if (name === session.account) {
    await learnWho();
  }
  show(settings);
}

function accountRow(settings, account, show) {
  const { name, owner, roots } = account;
  return [
    name,
    owner ? t('Owner') : t('Viewer'),
    roots.length > 0 ? roots.join(', ') : t('All folders'),
    element(
      'span',
      { class: 'actions' },
      action(t('Password'), name, () => askPassword(account, show)),
      action(t('Folders'), name, () => askRoots(settings, account, show)),
      action(t('Remove'), name, () => run('remove_account', { account: asText(name) }, (next) => removed(name, next, show))),
    ),
  ];
}

function addAccount(settings, show) {
  const boxes = rootBoxes(settings);
  const isFirst = settings.accounts.length === 0;
  return settingForm(
    t('Add an account'),
    [
      field(t('Account'), { name: 'account', autocomplete: 'off', autocapitalize: 'none', maxlength: 64 }),
      passwordField(t('Password')),
      !isFirst && checkbox(t('Is an owner too'), { name: 'owner' }),
      !isFirst && pathsOf(settings).length > 0 && boxes,
    ],
    t('Add the account'),
    ({ account, passwd, owner }) =>
      isFirst
        ? post('Auth', 'begin', { account: asText(account.value), passwd: asText(passwd.value) }).then(async () => {
            await learnWho();
            return get('Settings', 'get');
          })
        : change('add_account', { account: asText(account.value), passwd: asText(passwd.value), owner: owner.checked, roots: chosenRoots(boxes) }),
    show,
  );
}

function accountsSection(settings, show) {
  const rows = settings.accounts.map((account) => accountRow(settings, account, show));
  return section(
    t('Accounts'),
    rows.length > 0
      ? t('Everybody logs in. Viewers see films and nothing of the server; owners can change everything here.')
      : t('There are no accounts: everybody who uses this computer is an owner. Other devices can use the server when there is an account. The first one is an owner.'),
    rows.length > 0 && table(t('Accounts'), [t('Account'), t('Role'), t('Sees'), t('Action')], rows),
    addAccount(settings, show),
  );
}

const engineText = ({ encoder, device, lines, reason }) => `${encoder} (${device}): ${lines > 0 ? t('up to {lines} lines', { lines }) : reasonText(reason)}`;

function hardwareSection({ hardware }, show) {
  const list = hardware.engines.map((engine) => element('li', {}, engineText(engine)));
  const use = checkbox(t('Use the video engines of this machine'), {
    checked: hardware.enabled,
    on: { change: ({ target }) => run('set_hardware', { enabled: target.checked }, show) },
  });
  return section(
    t('Hardware'),
    t('Video engines convert films faster than the processor and need less power. The change holds for the next film that is opened. Engines are tested when the service starts: restart it after a change of the machine.'),
    use,
    list.length > 0 ? element('ul', {}, list) : element('p', {}, t('This machine has no video engine that can be used.')),
  );
}

function limitForm(name, title, about, { value, least, most }, show) {
  return [
    element('p', {}, about),
    settingForm(title, field(title, { name: 'value', type: 'number', value, min: least, max: most }), t('Save'), (fields) => change('set_limit', { name, value: fields.value.value }), show),
  ];
}

function limitsSection({ limits }, show) {
  return section(
    t('Limits'),
    [
      counted(limits.software, 'The processor converts {count} film at a time', 'The processor converts {count} films at a time'),
      limits.hardware > 0 && t('the video engines {count}', { count: limits.hardware }),
    ].filter(Boolean).join(', ') + t('. This follows from the kind of the machine. Films that play as they are have no limit.'),
    ...limitForm(
      'streams_per_viewer',
      t('Open streams of one viewer'),
      t('A viewer who opens more films than this closes the oldest one that is not in use.'),
      limits.streams_per_viewer,
      show,
    ),
  );
}

function cacheSection({ cache, limits }, show) {
  return section(
    t('Cache'),
    t('Posters, previews and facts of films are kept, so that they need not be made again. They take {size} now.', { size: sizeText(cache.bytes) }),
    ...limitForm('cache_megabytes', t('Largest size (MiB)'), t('Above this size the oldest ones are removed.'), limits.cache_megabytes, show),
    element('p', { class: 'actions' }, action(t('Empty'), t('the cache'), () => run('clear_cache', {}, show))),
  );
}

function startSection() {
  return section(
    t('At the start of the service'),
    t('Addresses, port, host names, HTTPS and proxies are options of the service. They are in /etc/mirevo/mirevo.conf, or on the command line of mirevo serve. A change of them needs a restart.'),
  );
}

const body = (settings, show) => [
  foldersSection(settings, show),
  accountsSection(settings, show),
  hardwareSection(settings, show),
  limitsSection(settings, show),
  cacheSection(settings, show),
  startSection(),
];

export async function settingsView(_, signal) {
  const place = element('div', { class: 'settings' });
  const told = element('p', { role: 'status' });
  const show = (settings) => {
    told.textContent = t('Saved.');
    replaceContent(place, body(settings, show));
  };
  replaceContent(place, body(await get('Settings', 'get', {}, undefined, { signal }), show));
  return { title: t('Settings'), nodes: [element('h1', {}, t('Settings')), told, place] };
}
