// Fields of the player's settings.
import { element } from '../dom.js';
import { attempt } from './page.js';

export const selectFor = (id, change) => element('select', { id, on: { change: ({ target }) => attempt(() => change(target.value)) } });

// `options`: [{ value, text, disabled }]. A list without a choice is disabled.
export function fill(select, options, chosen) {
  select.replaceChildren(
    ...options.map(({ value, text, disabled = false }) => {
      const option = new Option(text, value, value === chosen, value === chosen);
      option.disabled = disabled;
      return option;
    }),
  );
  select.disabled = options.length < 2;
}

export const labelled = (text, control) => element('div', {}, element('label', { for: control.id }, text), control);
