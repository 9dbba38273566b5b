// The one way the page talks to the server: POST /webapi/entry.cgi, every parameter value sent as
// JSON text, answers unwrapped from {"success", "data"} or turned into an ApiError.

const kEndpoint = 'webapi/entry.cgi';
const kTokenKey = 'qrix.token';
const kAccountKey = 'qrix.account';
const kApisKey = 'qrix.apis';

export const kAuthApi = 'QRIX.API.Auth';

// A failed call: `code` is the server's error code (0 when the server could not be reached or
// did not answer with JSON), `errors` the {"name", "reason"} object that comes with code 120.
export class ApiError extends Error {
  constructor(code, errors = null, detail = '') {
    super(detail || `error ${code}`);
    this.name = 'ApiError';
    this.code = code;
    this.errors = errors;
  }
}

// The session survives a reload of the page (the cookie does too), not a closed tab.
export const session = {
  token() { return sessionStorage.getItem(kTokenKey); },
  account() { return sessionStorage.getItem(kAccountKey); },
  // The APIs the server lets this account call; the page offers nothing else.
  apis() {
    try {
      const apis = JSON.parse(sessionStorage.getItem(kApisKey));
      return Array.isArray(apis) ? apis : [];
    } catch {
      return [];
    }
  },
  save(token, account, apis) {
    sessionStorage.setItem(kTokenKey, token);
    sessionStorage.setItem(kAccountKey, account);
    sessionStorage.setItem(kApisKey, JSON.stringify(apis));
  },
  clear() {
    for (const key of [kTokenKey, kAccountKey, kApisKey]) sessionStorage.removeItem(key);
  },
};

// Form body of one call. Values go out as JSON text, so a string such as "0111..." or "true"
// stays a string on the server instead of turning into a number or a boolean.
export function encodeCall(api, method, params = {}, version = 1) {
  const body = new URLSearchParams();
  body.set('api', api);
  body.set('version', String(version));
  body.set('method', method);
  for (const [name, value] of Object.entries(params)) {
    if (value !== undefined) body.set(name, JSON.stringify(value));
  }
  return body;
}

// Unwraps one answer envelope; throws ApiError for a failure or for something that is not one.
export function decodeAnswer(answer) {
  if (answer === null || typeof answer !== 'object' || typeof answer.success !== 'boolean') {
    throw new ApiError(0, null, 'the server sent an answer this page does not understand');
  }
  if (answer.success) return answer.data === undefined ? null : answer.data;
  const code = Number(answer.error?.code ?? 0);
  const errors = answer.errors ?? answer.error?.errors ?? null;
  throw new ApiError(code, errors);
}

// Sends one call's body (a form or multipart) with the session's token; unwraps the answer.
async function post(body) {
  const headers = {};
  const token = session.token();
  if (token) headers['X-QRIX-Token'] = token;
  let response;
  try {
    response = await fetch(kEndpoint, {
      method: 'POST',
      headers,
      body,
      credentials: 'same-origin',
    });
  } catch (e) {
    throw new ApiError(0, null, 'the server could not be reached');
  }
  let answer;
  try {
    answer = await response.json();
  } catch (e) {
    throw new ApiError(0, null, `the server answered HTTP ${response.status} without JSON`);
  }
  return decodeAnswer(answer);
}

export function call(api, method, params = {}, version = 1) {
  return post(encodeCall(api, method, params, version));
}

// A call that carries a file: multipart/form-data with the call's fields and the file as the
// part `fileParam`, which the server fills that parameter from.
export function upload(api, method, fileParam, file, params = {}, version = 1) {
  const body = new FormData();
  for (const [name, value] of encodeCall(api, method, params, version)) body.append(name, value);
  body.append(fileParam, file, file.name);
  return post(body);
}

export async function login(account, passwd) {
  session.clear();
  const data = await call(kAuthApi, 'login', { account, passwd });
  if (!data || typeof data.token !== 'string') {
    throw new ApiError(0, null, 'the server sent no session token');
  }
  session.save(data.token, account, Array.isArray(data.apis) ? data.apis : []);
  return data;
}

export async function logout() {
  try {
    await call(kAuthApi, 'logout');
  } finally {
    session.clear();
  }
}
