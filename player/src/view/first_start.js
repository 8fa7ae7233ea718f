// The first start: asks for the folder with the films and for an account.
import { asText, post } from '../api.js';
import { element, field } from '../dom.js';
import { t } from '../language.js';
import { learnWho, session } from '../session.js';
import { passwordField, settingForm } from './forms.js';

const accountField = (required) => field(t('Account'), { name: 'account', autocomplete: 'username', autocapitalize: 'none', maxlength: 64, required });

function wordFields() {
  return [
    element('p', {}, t('To show that this is your server, copy the word that the service shows where it starts, or in the file that it names there.')),
    field(t('Word'), { name: 'word', autocomplete: 'off', autocapitalize: 'none', spellcheck: false }),
  ];
}

// The steps in their order. A step that is done is not repeated when a later one is refused.
class Begin {
  constructor(needsWord) {
    this.needsWord = needsWord;
    this.isFolderAdded = false;
    this.isAccountMade = false;
  }

  async addFolder({ path }) {
    if (!this.isFolderAdded) {
      await post('Settings', 'add_folder', { path: asText(path.value) });
      this.isFolderAdded = true;
    }
  }

  async makeAccount({ word, account, passwd }) {
    if (!this.isAccountMade && account.value) {
      await post('Auth', 'begin', { word: asText(word?.value ?? ''), account: asText(account.value), passwd: asText(passwd.value) }, undefined, { quiet: true });
      this.isAccountMade = true;
    }
  }

  // From elsewhere only an account may name a folder.
  async run(fields) {
    if (this.needsWord) {
      await this.makeAccount(fields);
      await this.addFolder(fields);
    } else {
      await this.addFolder(fields);
      await this.makeAccount(fields);
    }
  }
}

function accountFields(needsWord) {
  const about = needsWord
    ? t('The account is an owner: it can change the settings and create more accounts.')
    : t('With an account, everybody has to log in. Without one, everybody who uses this computer can change the settings, and no other device can use the server.');
  const password = passwordField(t('Password'));
  password.querySelector('input').required = needsWord;
  return [element('p', {}, about), accountField(needsWord), password];
}

export function firstStartView(go) {
  const needsWord = session.firstStart === 'word';
  const begin = new Begin(needsWord);
  const form = settingForm(
    t('First start'),
    [
      needsWord && wordFields(),
      element('p', {}, t('Which folder of the server has your films? More folders can be added in the settings.')),
      field(t('Folder on the server'), { name: 'path', placeholder: '/srv/films', autocomplete: 'off', autocapitalize: 'none', spellcheck: false }),
      accountFields(needsWord),
    ].flat(2),
    t('Begin'),
    (fields) => begin.run(fields),
    async () => {
      await learnWho();
      await go();
    },
  );
  return { title: t('Welcome'), nodes: [element('h1', {}, t('Welcome')), element('div', { class: 'settings' }, form)] };
}
