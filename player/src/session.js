// The logged-in account. The session itself is in a cookie that scripts cannot read.
import { ApiError, asText, get, post, whenUnauthorized } from './api.js';
import { element, field } from './dom.js';
import { t } from './language.js';
import { errorText } from './words.js';

// `firstStart`: what a service that nobody has set up asks for, "open" or "word"; otherwise "none".
export const session = { loginRequired: false, account: '', owner: true, firstStart: 'none' };

const changes = new EventTarget();
export const whenSessionChanges = (handler) => changes.addEventListener('change', handler);

function become({ login_required: loginRequired = true, account = '', owner = false, first_start: firstStart = 'none' }) {
  Object.assign(session, { loginRequired, account: account ?? '', owner, firstStart });
  changes.dispatchEvent(new Event('change'));
}

// Asks the server for the account. Without accounts, every viewer is an owner.
export async function learnWho() {
  try {
    become(await get('Auth', 'who', {}, undefined, { quiet: true }));
  } catch (error) {
    if (error.reason === 'Unauthorized') {
      become({});
    }
  }
  if (session.loginRequired && !session.account && session.firstStart === 'none') {
    await logIn();
  }
}

function loginForm(dialog, done) {
  const complaint = element('p', { class: 'complaint', role: 'alert' });
  const form = element(
    'form',
    {},
    element('h2', {}, t('Log in')),
    field(t('Account'), { name: 'account', autocomplete: 'username', autocapitalize: 'none', autofocus: true }),
    field(t('Password'), { name: 'passwd', type: 'password', autocomplete: 'current-password' }),
    complaint,
    element(
      'p',
      { class: 'actions' },
      element('button', { class: 'main' }, t('Log in')),
      element('button', { type: 'button', on: { click: () => dialog.close() } }, t('Cancel')),
    ),
  );
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    complaint.textContent = '';
    const { account, passwd } = form.elements;
    try {
      const answer = await post('Auth', 'login', { account: asText(account.value), passwd: asText(passwd.value) }, undefined, { quiet: true });
      become({ login_required: true, ...answer });
      done();
      dialog.close();
    } catch (error) {
      complaint.textContent = error.reason === 'Unauthorized' ? t('The account or the password is wrong.') : errorText(error);
      passwd.select();
    }
  });
  return form;
}

let asking = null;

// Shows the login dialog until the login succeeds. Rejects when the viewer cancels. All callers share one dialog.
export function logIn() {
  asking ??= new Promise((resolve, reject) => {
    const dialog = element('dialog', { id: 'login', 'aria-label': t('Log in') });
    dialog.append(loginForm(dialog, resolve));
    dialog.addEventListener('close', () => {
      dialog.remove();
      asking = null;
      reject(new ApiError({ code: 401, reason: 'Unauthorized' })); // no effect after a success
    });
    (document.fullscreenElement ?? document.body).append(dialog);
    dialog.showModal();
  });
  return asking;
}

export async function logOut() {
  await post('Auth', 'logout', {}, undefined, { quiet: true });
  become({});
}

whenUnauthorized(logIn);
