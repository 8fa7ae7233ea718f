// The owner's rules: folders whose films are converted if the server cannot play them in time.
import { asText, get, post } from '../api.js';
import { element, field, table } from '../dom.js';
import { t } from '../language.js';
import { settingForm } from './forms.js';
import { attempt, folderAddress, replaceContent } from './page.js';

const SIZES = { mp4: '1080p', 'mp4-720p': '720p', 'mp4-480p': '480p' };

function sizeField() {
  const options = Object.entries(SIZES).map(([value, text]) => element('option', { value }, text));
  return element('label', {}, `${t('Quality')} `, element('select', { name: 'profile' }, options));
}

function rows({ rules }, remove) {
  return rules.map((rule) => [
    element('a', { href: folderAddress(rule) }, rule.path),
    SIZES[rule.profile] ?? rule.profile,
    element('button', { type: 'button', 'aria-label': `${t('Remove')} ${rule.path}`, on: { click: () => remove(rule) } }, t('Remove')),
  ]);
}

function list(answer, remove) {
  const isWaiting = answer.rules.length > 0 && !answer.measured;
  return [
    answer.rules.length > 0 && table(t('Rules'), [t('Folder'), t('Quality'), t('Action')], rows(answer, remove)),
    isWaiting && element('p', {}, t('The server does not know its speed yet. It adds films when it has been measured.')),
  ];
}

// `changed`: called after a rule has been removed, because films that wait go with it.
export async function rulesSection(changed) {
  const place = element('div');
  const remove = ({ id }) =>
    attempt(async () => {
      await post('Conversion', 'remove_rule', { id });
      await Promise.all([show(), changed()]);
    });
  const show = async () => replaceContent(place, list(await get('Conversion', 'list_rules'), remove));
  const add = settingForm(
    t('Add a rule'),
    [field(t('Folder on the server'), { name: 'path', placeholder: '/srv/films', autocomplete: 'off', autocapitalize: 'none', spellcheck: false }), sizeField()],
    t('Add the rule'),
    async (fields) => {
      await post('Conversion', 'add_rule', { path: asText(fields.path.value), profile: fields.profile.value });
      fields.path.value = '';
    },
    show,
  );
  await show();
  const about = t('The server converts every film in these folders that it cannot play in time, also films that come later. Removing a rule keeps what is ready.');
  return element('section', {}, element('h2', {}, t('Rules')), element('p', {}, about), place, add);
}
