-- The package database: the role "Haulport" (the package's own account, which peer
-- authentication lets in), the database "download" it owns, and the per-user settings table.
-- Applied by ./setup as the superuser; every step may run again.
\set ON_ERROR_STOP on
SET client_min_messages = warning;

SELECT 'CREATE ROLE "Haulport" LOGIN'
WHERE NOT EXISTS (SELECT FROM pg_roles WHERE rolname = 'Haulport') \gexec

SELECT 'CREATE DATABASE download OWNER "Haulport" ENCODING ''UTF8'' TEMPLATE template0'
WHERE NOT EXISTS (SELECT FROM pg_database WHERE datname = 'download') \gexec

\connect download
SET client_min_messages = warning;
SET ROLE "Haulport";

-- One row per account, created on its first write. Boolean columns print as 't' and 'f'.
CREATE TABLE IF NOT EXISTS user_setting (
  username text NOT NULL,
  uid integer NOT NULL,
  share_folder text NOT NULL DEFAULT '',
  user_disabled boolean NOT NULL DEFAULT false,
  enable_watchffolder boolean NOT NULL DEFAULT false,
  delete_watchtorrent boolean NOT NULL DEFAULT false,
  watchfolder text
);

-- Accounts are looked up by lower(username): one row per account whatever its letter case,
-- found through the index however many accounts there are.
CREATE UNIQUE INDEX IF NOT EXISTS user_setting_lower_username ON user_setting (lower(username));
