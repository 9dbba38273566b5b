<?php
// The demo's Xunlei plug-in manager, run as the settings module runs the package's:
//   php xunleipluginmgr.php --plugin NAME --getAccountInfo
//   php xunleipluginmgr.php --plugin NAME --setAccountInfo --account USER --password PASSWORD
//   php xunleipluginmgr.php --plugin NAME --account USER --password PASSWORD --verifyAccount
// Accounts are kept per plug-in in /var/packages/Haulport/etc/download/xunlei_accounts.json
// (mode 0600, replaced whole). --getAccountInfo prints {"username", "password"}, or nothing
// when none is kept. Exit status 0 on success, 1 when the store cannot be written, 2 for a bad
// command line, 3 when verification fails (an empty account name or password).
const STORE = '/var/packages/Haulport/etc/download/xunlei_accounts.json';

function fail(int $status, string $why): never {
    fwrite(STDERR, "xunleipluginmgr: $why\n");
    exit($status);
}

$opts = ['plugin' => null, 'account' => null, 'password' => null, 'action' => null];
for ($i = 1; $i < count($argv); ++$i) {
    $arg = $argv[$i];
    if (in_array($arg, ['--plugin', '--account', '--password'], true)) {
        if (!array_key_exists($i + 1, $argv)) {
            fail(2, "$arg needs a value");
        }
        $opts[substr($arg, 2)] = $argv[++$i];  // taken as it is, whatever it looks like
    } elseif (in_array($arg, ['--getAccountInfo', '--setAccountInfo', '--verifyAccount'], true)) {
        $opts['action'] = $arg;
    } else {
        fail(2, "unknown argument");
    }
}
if ($opts['plugin'] === null || $opts['plugin'] === '' || $opts['action'] === null) {
    fail(2, 'usage: --plugin NAME and one of --getAccountInfo, --setAccountInfo, --verifyAccount');
}

$store = is_file(STORE) ? json_decode((string)file_get_contents(STORE), true) : [];
if (!is_array($store)) {
    $store = [];
}
$plugin = $opts['plugin'];

switch ($opts['action']) {
    case '--getAccountInfo':
        if (isset($store[$plugin])) {
            echo json_encode($store[$plugin]), "\n";
        }
        exit(0);
    case '--setAccountInfo':
        if ($opts['account'] === null || $opts['password'] === null) {
            fail(2, '--setAccountInfo needs --account and --password');
        }
        $store[$plugin] = ['username' => $opts['account'], 'password' => $opts['password']];
        $dir = dirname(STORE);
        if (!is_dir($dir) && !mkdir($dir, 0700, true)) {
            fail(1, "cannot make $dir");
        }
        $tmp = tempnam($dir, '.xunlei_accounts.');
        if ($tmp === false || file_put_contents($tmp, json_encode($store) . "\n") === false
            || !chmod($tmp, 0600) || !rename($tmp, STORE)) {
            if ($tmp !== false) {
                @unlink($tmp);
            }
            fail(1, 'cannot write ' . STORE);
        }
        exit(0);
    default:
        exit(($opts['account'] ?? '') !== '' && ($opts['password'] ?? '') !== '' ? 0 : 3);
}
