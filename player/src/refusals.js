// What the server says when it refuses a setting. The sentences are the server's own; here they get a translation.
import { t } from './language.js';
import { errorText } from './words.js';

export const REFUSALS = [
  'The folder must be an absolute path, such as /srv/films, without control characters.',
  'The server has no folder with this path.',
  'The service is not allowed to read this folder.',
  'The whole disk cannot be a media folder. Name the folder with the films.',
  'This folder belongs to the operating system. Name the folder with the films.',
  'This folder holds files of the service itself. Name the folder with the films.',
  'This folder lies in a media folder, so its films are already shown.',
  'There are too many media folders. Name a folder that contains several of them.',
  'This folder is named where the service is started. Remove it there.',
  'The list of media folders is damaged. Restore it, or remove it and add them again.',
  'The list of media folders could not be written.',
  'A name must have 1 to 64 letters, digits, dots, hyphens, underscores and @ signs, and begin with a letter or a digit.',
  'A password must have 8 to 1024 bytes.',
  'A media folder must be the absolute path of an existing file or folder.',
  'An account with this name exists already.',
  'This server has accounts already. Log in with one of them.',
  'The last owner cannot be removed. Create another owner first.',
  'No account has this name.',
  'The accounts file is damaged, or the shared storage with it is missing. Restore it, or remove it to start without accounts.',
  'The accounts file could not be written.',
  'There is no such limit, or the value is out of its range.',
  'A rule needs a folder with films.',
  'There are too many rules.',
  'You have 250 films in the list of conversions, and more are not possible. Remove some of them.',
  'Create an account on the server first. Without one, the settings can be changed only there.',
  'The word is wrong. The service shows it where it starts.',
];

// One text for the owner: the refusal in the page's language, or what is said of any other error.
export function refusalText(error) {
  return REFUSALS.includes(error.message) ? t(error.message) : errorText(error);
}
