// Forms that change a setting and say beside themselves why it is refused.
import { element, field } from '../dom.js';
import { refusalText } from '../refusals.js';

export const checkbox = (label, attributes) => element('label', { class: 'check' }, element('input', { type: 'checkbox', ...attributes }), ` ${label}`);

export const passwordField = (label) => field(label, { name: 'passwd', type: 'password', autocomplete: 'new-password', minlength: 8, maxlength: 1024 });

// `send`: called with the form's fields; what it returns goes to `done`. While it works the button is disabled.
export function settingForm(name, children, button, send, done) {
  const complaint = element('p', { class: 'complaint', role: 'alert' });
  const press = element('button', { class: 'main' }, button);
  const form = element('form', { class: 'setting', 'aria-label': name }, children, element('p', { class: 'actions' }, press), complaint);
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    complaint.textContent = '';
    press.disabled = true;
    try {
      await done(await send(form.elements));
    } catch (error) {
      complaint.textContent = refusalText(error);
    } finally {
      press.disabled = false;
    }
  });
  return form;
}
