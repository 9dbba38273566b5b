// The texts the server's module reads too: texts/<lang>/strings, INI sections of key="text"
// lines. The page uses the English set, which is complete.

// {section: {key: text}} of INI text.
export function parseTexts(text) {
  const out = {};
  let section = out[''] = {};
  for (const raw of text.split('\n')) {
    const line = raw.trim();
    if (line === '' || line.startsWith('#') || line.startsWith(';')) continue;
    const header = /^\[([^\]]+)\]$/.exec(line);
    if (header) {
      section = out[header[1]] ??= {};
      continue;
    }
    const entry = /^([^=\s]+)\s*=\s*"(.*)"$/.exec(line);
    if (entry) section[entry[1]] ??= entry[2];
  }
  return out;
}

let english = null;

export async function loadTexts() {
  if (!english) {
    try {
      const response = await fetch('texts/enu/strings');
      english = parseTexts(response.ok ? await response.text() : '');
    } catch {
      english = {};
    }
  }
  return english;
}
