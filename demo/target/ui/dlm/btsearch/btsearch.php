<?php
// The demo's stand-in for the package's search script. A plug-in is a JSON file
// {"name", "displayname", "version", "description", "account"} in the built-in folder beside this
// script or in the user folder; a user plug-in of the same name takes the built-in one's place.
//
//   -p                          print the plug-ins as a JSON array
//   -a FILE                     add the plug-in in FILE      (2: not a plug-in, 3: a built-in's name)
//   -d NAME                     delete a user plug-in        (2: no such plug-in, 3: built in)
//   -u NAME -l URL              fetch URL/NAME.json          (4: no usable update there)
//   -b NAME -n USER -k PASS     store the account (empty USER and PASS remove it)
//   -t NAME -n USER [-k PASS]   verify an account (no PASS: the stored one)
// Any other failure exits 1. The demo reaches no search site: a plug-in's "demo_account" is the
// one account its verification accepts.

const BUILTIN_DIR = __DIR__ . '/plugins';
const USER_DIR = '/var/packages/Haulport/etc/download/userplugins';
const ACCOUNT_FILE = '/var/packages/Haulport/etc/download/btsearch.conf';
const MAX_PLUGIN_BYTES = 65536;

function fail(int $status, string $message): never
{
    fwrite(STDERR, "btsearch.php: $message\n");
    exit($status);
}

function valid_name($name): bool
{
    return is_string($name) && preg_match('/^[a-z0-9_]{1,32}$/D', $name) === 1;
}

// The plug-in described by JSON text, or null when it is not one.
function parse_plugin(string $text): ?array
{
    $p = json_decode($text, true);
    if (!is_array($p) || !valid_name($p['name'] ?? null)) {
        return null;
    }
    foreach (['displayname', 'version', 'description'] as $key) {
        if (!is_string($p[$key] ?? null) || strlen($p[$key]) > 200) {
            return null;
        }
    }
    if (!is_bool($p['account'] ?? false)) {
        return null;
    }
    return $p;
}

// Every plug-in by name; user plug-ins replace built-in ones.
function plugins(): array
{
    $all = [];
    foreach ([BUILTIN_DIR => true, USER_DIR => false] as $dir => $builtin) {
        foreach (glob("$dir/*.json") ?: [] as $file) {
            $p = parse_plugin((string) @file_get_contents($file));
            if ($p !== null && basename($file) === $p['name'] . '.json') {
                $all[$p['name']] = $p + ['builtin' => $builtin, 'path' => $file];
            }
        }
    }
    ksort($all);
    return $all;
}

// Writes $path whole or not at all: a reader sees the old file or the new one.
function publish(string $path, string $content, int $mode): void
{
    $tmp = @tempnam(dirname($path), '.btsearch');
    if ($tmp === false || @file_put_contents($tmp, $content) !== strlen($content) ||
        !@chmod($tmp, $mode) || !@rename($tmp, $path)) {
        if ($tmp !== false) {
            @unlink($tmp);
        }
        fail(1, "cannot write $path");
    }
}

function install(array $p, string $text): void
{
    if (!is_dir(USER_DIR) && !@mkdir(USER_DIR, 0755, true)) {
        fail(1, 'cannot make ' . USER_DIR);
    }
    publish(USER_DIR . '/' . $p['name'] . '.json', $text, 0644);
}

// The accounts file as sections of key => value. Values are written as sh reads double-quoted
// text, as the package's key/value files are.
function accounts(): array
{
    $sections = [];
    $current = null;
    foreach (@file(ACCOUNT_FILE, FILE_IGNORE_NEW_LINES) ?: [] as $line) {
        if (preg_match('/^\[(.+)\]$/', $line, $m)) {
            $current = $m[1];
            $sections[$current] = [];
        } elseif ($current !== null && preg_match('/^([a-z]+)="(.*)"$/', $line, $m)) {
            $sections[$current][$m[1]] = preg_replace('/\\\\([\\\\"$`])/', '$1', $m[2]);
        }
    }
    return $sections;
}

function save_accounts(array $sections): void
{
    $text = '';
    foreach ($sections as $name => $keys) {
        $text .= "[$name]\n";
        foreach ($keys as $key => $value) {
            $text .= "$key=\"" . addcslashes($value, '\\"$`') . "\"\n";
        }
    }
    publish(ACCOUNT_FILE, $text, 0600);  // it holds passwords
}

function account_plugin(string $name): array
{
    $p = plugins()[$name] ?? null;
    if ($p === null || !$p['account']) {
        fail(1, "$name is not a plug-in that takes an account");
    }
    return $p;
}

// Options: -p alone; every other letter takes the next argument as it is, dashes and all.
$opts = [];
for ($i = 1; $i < count($argv); $i++) {
    $flag = $argv[$i];
    if ($flag === '-p') {
        $opts['p'] = true;
    } elseif (preg_match('/^-([adulbnkt])$/', $flag, $m) && $i + 1 < count($argv)) {
        $opts[$m[1]] = $argv[++$i];
    } else {
        fail(1, "unexpected argument $flag");
    }
}

if (isset($opts['p'])) {
    $list = [];
    foreach (plugins() as $p) {
        $list[] = array_intersect_key($p, array_flip(
            ['name', 'displayname', 'version', 'description', 'account', 'builtin']));
    }
    echo json_encode($list, JSON_UNESCAPED_SLASHES | JSON_UNESCAPED_UNICODE), "\n";
} elseif (isset($opts['a'])) {
    $text = @file_get_contents($opts['a'], false, null, 0, MAX_PLUGIN_BYTES + 1);
    $p = ($text === false || strlen($text) > MAX_PLUGIN_BYTES) ? null : parse_plugin($text);
    if ($p === null) {
        fail(2, 'the file is not a search plug-in');
    }
    if (is_file(BUILTIN_DIR . '/' . $p['name'] . '.json')) {
        fail(3, "{$p['name']} is the name of a built-in plug-in");
    }
    install($p, $text);
} elseif (isset($opts['d'])) {
    $p = valid_name($opts['d']) ? (plugins()[$opts['d']] ?? null) : null;
    if ($p === null) {
        fail(2, 'no such plug-in');
    }
    if ($p['builtin']) {
        fail(3, "{$p['name']} is built in");
    }
    if (!@unlink($p['path'])) {
        fail(1, "cannot delete {$p['path']}");
    }
} elseif (isset($opts['u'], $opts['l'])) {
    if (!valid_name($opts['u']) || !preg_match('#^http://[^/?\#@]+/#', $opts['l'])) {
        fail(4, 'no update for that name');
    }
    $context = stream_context_create(['http' => ['timeout' => 10, 'follow_location' => 0]]);
    $text = @file_get_contents($opts['l'] . $opts['u'] . '.json', false, $context, 0,
        MAX_PLUGIN_BYTES + 1);
    $p = ($text === false || strlen($text) > MAX_PLUGIN_BYTES) ? null : parse_plugin($text);
    if ($p === null || $p['name'] !== $opts['u']) {
        fail(4, "no usable update for {$opts['u']}");
    }
    install($p, $text);
} elseif (isset($opts['b'], $opts['n'], $opts['k'])) {
    account_plugin($opts['b']);
    foreach ([$opts['n'], $opts['k']] as $value) {
        if (strpbrk($value, "\r\n\0") !== false || strlen($value) > 256) {
            fail(1, 'a user name or password holds a line break or is too long');
        }
    }
    $sections = accounts();
    if ($opts['n'] === '' && $opts['k'] === '') {
        unset($sections[$opts['b']]);
    } else {
        $sections[$opts['b']] = ['username' => $opts['n'], 'password' => $opts['k']];
    }
    save_accounts($sections);
} elseif (isset($opts['t'], $opts['n'])) {
    $p = account_plugin($opts['t']);
    $stored = accounts()[$opts['t']] ?? [];
    $password = $opts['k'] ?? (($stored['username'] ?? null) === $opts['n'] ? $stored['password'] : null);
    if (($p['demo_account'] ?? null) !== ['username' => $opts['n'], 'password' => $password]) {
        fail(1, "the account is not accepted by {$opts['t']}");
    }
} else {
    fail(1, 'usage: btsearch.php -p | -a FILE | -d NAME | -u NAME -l URL | ' .
        '-b NAME -n USER -k PASS | -t NAME -n USER [-k PASS]');
}
exit(0);
