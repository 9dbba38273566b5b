// Every error code the server can answer, in words a person can act on. 101-111 come from the
// web-API host, 100 when the module reported no outcome, 120 from the parameter checks, the rest
// from the settings module.

export const kErrorTexts = {
  100: 'The server finished the request without reporting an outcome.',
  101: 'The request was incomplete: the API, version or method was missing.',
  102: 'The server does not offer this settings API.',
  103: 'The server does not offer this operation.',
  104: 'The server does not support this version of the API.',
  105: 'Your account is not permitted to use these settings. Sign in as an administrator.',
  106: 'You are not signed in, or your session has expired. Please sign in again.',
  107: 'The security token of this page is missing or out of date. Please sign in again.',
  108: 'The request was too large for the server.',
  109: 'Too many failed sign-in attempts. Wait a few minutes before trying again.',
  110: 'The server met an internal error while handling the request.',
  111: 'The account or password is wrong.',
  117: 'The download folder could not be checked.',
  403: 'You may not write to that folder. Choose a folder inside a shared folder you can write ' +
    'to.',
  407: 'Your default destination could not be saved.',
  501: 'A required value is missing or empty.',
  502: 'A helper program answered with text that could not be read.',
  503: 'The background task could not be started.',
  504: 'A setting could not be read.',
  505: 'The settings could not be written. Values saved before the failure are kept.',
  506: 'The current settings could not be read.',
  508: 'The server ran out of memory while reading the accounts.',
  509: 'The account list could not be read.',
  511: 'The network request could not be prepared.',
  512: 'The update check could not be completed.',
  514: 'The download scheduler could not be told to reload its settings.',
  515: 'The download scheduler could not be signalled.',
  516: 'A helper program failed.',
  517: 'That port is already used by another service. Choose a different port.',
  518: 'The firewall rules could not be reloaded.',
  519:
    'The download folder settings of your account could not be read: the download database ' +
    '(PostgreSQL) is not installed, not running or not set up.',
  1000: 'The Xunlei account could not be set.',
  1001: 'The database service is not running.',
  1002: 'The download service could not be stopped.',
  1003: 'The download service could not be started.',
  1004: 'eMule\'s temporary folder could not be pointed at the volume.',
  1005: 'Moving the download data failed.',
  1006: 'There is not enough free space on the target volume.',
  1201: 'The temporary download folder could not be found. Ask an administrator to choose a ' +
    'download volume.',
  1207: 'That folder cannot be used: it does not exist, or another account already watches it.',
  1208: 'The watch folder could not be saved. To switch watching on, also give a watch folder.',
  1209: 'The settings were saved, but the BitTorrent ports could not be registered as service ' +
    'ports.',
  1400: 'The plug-in folder could not be created.',
  1401: 'The search plug-in rejected the request.',
  1402: 'The search plug-in failed.',
  1403: 'The account could not be saved for the search plug-in.',
  1404: 'The account could not be verified.',
  1405: 'The update server reported a failure.',
  1406: 'The package information could not be read.',
  1800: 'The eMule service is not running.',
  1802: 'The eMule shared folders could not be saved.',
  1803: 'The eMule client could not be started.',
  1805: 'eMule is turned off. Turn it on before changing its settings.',
  1806: 'The eMule ports could not be applied.',
};

const kReasonTexts = {
  required: 'is required',
  type: 'has the wrong type of value',
  condition: 'is outside the allowed values',
};

// The sentence for a failed call. `labelOf(name)` turns a parameter name into the label a person
// sees next to the field, so that error 120 points at the field to fix.
export function describeError(error, labelOf = (name) => name) {
  const code = Number(error?.code ?? 0);
  if (code === 120) {
    const name = error.errors?.name;
    const reason = kReasonTexts[error.errors?.reason] ?? 'is not valid';
    return name ? `${labelOf(name)} ${reason}.` : 'A value is not valid.';
  }
  if (code === 0) {
    const detail = error?.message ? `: ${error.message}` : '';
    return `The request did not complete${detail}.`;
  }
  return kErrorTexts[code] ?? `The request failed with error ${code}.`;
}

// Codes after which the page must ask for a sign-in again.
export function needsLogin(error) {
  return error?.code === 106 || error?.code === 107;
}
