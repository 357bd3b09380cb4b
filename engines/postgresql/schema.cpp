#include "engines/postgresql/schema.h"

#include "engines/postgresql/connection.h"

// Another version is left as it is, and roles are there, or can be made.
static constexpr std::string_view pg_schema_begin =
    R"sql(-- The records of kplog, version 1 of their schema.
begin;
set local search_path = pg_catalog, pg_temp;
set local client_min_messages = warning;

do $$
declare
  found text := 'none';
begin
  if exists (select from pg_class c join pg_namespace n on n.oid = c.relnamespace
             where n.nspname = 'kplog' and c.relname = 'version') then
    execute 'select version::text from kplog.version' into found;
    if found is distinct from '1' then
      raise exception 'the schema "kplog" has version %, not 1', coalesce(found, 'none')
        using hint = 'it stays as it is: another database, or the kplog that made it';
    end if;
  elsif exists (select from pg_class c join pg_namespace n on n.oid = c.relnamespace
                where n.nspname = 'kplog') then
    raise exception 'the schema "kplog" is another''s: it has no version'
      using hint = 'it stays as it is: another database (createdb)';
  end if;
  for found in select name from unnest(array['kplog_ship', 'kplog_read']) name
               where not exists (select from pg_roles where rolname = name)
  loop
    begin
      execute format('create role %I nologin', found);
    exception
      when insufficient_privilege then
        raise exception 'there is no role "%", and % may make none: CREATE ROLE %',
          found, current_user, found;
      when duplicate_object or unique_violation then null;
    end;
  end loop;
end $$;

create schema if not exists kplog;
revoke all on schema kplog from public;
grant usage on schema kplog to kplog_ship, kplog_read;
)sql";

static constexpr std::string_view pg_schema_tables = R"sql(
create table if not exists kplog.version (
  version integer not null
);
create unique index if not exists version_once on kplog.version ((true));

-- What is decided for all tenants: a single row.
create table if not exists kplog.setting (
  pruned_before date,
  days_back integer not null default 400 check (days_back between 0 and 4000),
  has_live_index boolean not null default false
);
create unique index if not exists setting_once on kplog.setting ((true));

-- Whose records a user's are. Users without a row here have the tenant "default".
create table if not exists kplog.member (
  role name not null,
  tenant text collate "C" not null check (tenant <> ''),
  is_own boolean not null default true,
  primary key (role, tenant)
);
create unique index if not exists member_own on kplog.member (role) where is_own;

-- Partitions of kplog.record.
create table if not exists kplog.part (
  part date primary key,
  name name not null,
  is_finished boolean not null,
  made timestamptz not null default clock_timestamp()
);

-- Definitions and catalogs that records are shown by.
create table if not exists kplog.content (
  tenant text collate "C" not null,
  hash text collate "C" not null check (hash = encode(sha256(bytes), 'hex')),
  bytes bytea not null,
  added timestamptz not null default clock_timestamp(),
  primary key (tenant, hash)
);

create table if not exists kplog.journal (
  tenant text collate "C" not null,
  host text collate "C" not null,
  journal text collate "C" not null,
  told timestamptz,
  waiting_bytes numeric not null default 0,
  given_up numeric not null default 0,
  is_given_up_exact boolean not null default true,
  primary key (tenant, host, journal)
);

-- How far each segment of a journal is here, and what its records are like.
create table if not exists kplog.segment (
  id bigint generated always as identity primary key,
  tenant text collate "C" not null,
  host text collate "C" not null,
  journal text collate "C" not null,
  name text collate "C" not null,
  first bigint not null,
  day date not null,
  part date not null,
  is_pruned boolean not null default false,
  lines bigint not null default 0,
  bytes bigint not null default 0,
  last bigint not null default 0,
  digest bigint not null default 0,
  top bigint not null default 0,
  batches integer not null default 0,
  again integer not null default 0,
  moved xid8 not null default pg_current_xact_id(),
  records bigint not null default 0,
  events bigint[] not null default '{}',
  kits text[] collate "C" not null default '{}',
  earliest bigint,
  latest bigint,
  has_timeless boolean not null default false,
  unique (tenant, host, journal, name, first)
) with (fillfactor = 70);
create index if not exists segment_moved on kplog.segment (moved);

create table if not exists kplog.record (
  segment bigint not null,
  line bigint not null,
  digest bigint not null,
  time timestamptz,
  event bigint,
  part date not null,
  batch integer not null,
  level smallint,
  tenant text collate "C" not null,
  host text collate "C" not null,
  record text collate "C" not null check (octet_length(record) <= 16777216)
) partition by list (part);
create unique index if not exists record_place on kplog.record (segment, line, digest, part);
create index if not exists record_time on kplog.record (host, event, time);
create index if not exists record_event on kplog.record (segment, event, line);
create table if not exists kplog.record_other partition of kplog.record for values in ('infinity');
)sql";

static constexpr std::string_view pg_schema_reading = R"sql(
-- Whose records are written and read: those of the tenant that kplog.tenant names, where the user
-- is a member of it, or of the user's own.
create or replace function kplog.tenant() returns text
language plpgsql stable security definer set search_path = pg_catalog, pg_temp as $$
declare
  asked text := nullif(current_setting('kplog.tenant', true), '');
  found text;
begin
  select m.tenant into found from kplog.member m
    where m.role = session_user and case when asked is null then m.is_own else m.tenant = asked end;
  if found is not null then
    return found;
  end if;
  if not exists (select from kplog.member m where m.role = session_user)
      and (asked is null or asked = 'default') then
    return 'default';
  end if;
  raise invalid_authorization_specification using message = case when asked is null
    then format('%s has no tenant of its own: --tenant says which', session_user)
    else format('%s is no member of the tenant "%s"', session_user, asked) end;
end $$;

-- The segment that a statement inserts records of: the session names it, and it is the tenant's.
create or replace function kplog.current_segment() returns bigint
language sql stable security definer set search_path = pg_catalog, pg_temp as $$
  select s.id from kplog.segment s
    where s.id = nullif(current_setting('kplog.segment', true), '')::bigint
      and s.tenant = kplog.tenant() and not s.is_pruned
$$;

-- The attributes of a stored line. What jsonb refuses has the text "unreadable" instead: \u0000, halves
-- of a pair of surrogates, numbers beyond its own.
create or replace function kplog.attributes(line text) returns jsonb
language plpgsql immutable strict as $$
begin
  return coalesce(line::pg_catalog.jsonb operator(pg_catalog.->) 'attributes', '{}');
exception when others then
  return '"unreadable"';
end $$;

-- Lines of a segment that hold one of these, by the index over attributes. What is in no index over
-- attributes is found by reading.
create or replace function kplog.lines_with(a_part date, a_segment bigint, contained jsonb[])
returns setof bigint
language plpgsql stable security definer set search_path = pg_catalog, pg_temp as $$
declare
  own text := kplog.tenant();
begin
  return query select r.line from kplog.record r
    where r.part = a_part and r.segment = a_segment and r.tenant = own
      and (kplog.attributes(r.record) @> any (contained));
end $$;

-- Segments of a day that have lines which hold one of these; nothing where there are more than
-- `most` such lines, or no index over attributes.
create or replace function kplog.segments_with(a_part date, contained jsonb[], most bigint)
returns bigint[]
language plpgsql stable security definer set search_path = pg_catalog, pg_temp as $$
declare
  own text := kplog.tenant();
  found bigint[];
  lines bigint;
begin
  if not exists (select from kplog.part p where p.part = a_part and p.is_finished) then
    return null;
  end if;
  select coalesce(array_agg(distinct f.segment), '{}'), count(*) into found, lines from (
    select r.segment from kplog.record r
      where r.part = a_part and r.tenant = own and kplog.attributes(r.record) @> any (contained)
      limit most + 1) f;
  return case when lines <= most then found end;
end $$;
)sql";

static constexpr std::string_view pg_schema_upkeep = R"sql(
-- Makes the partition of a day; false: it is there. For functions below.
create or replace function kplog.make_part(a_part date) returns boolean
language plpgsql security definer set search_path = pg_catalog, pg_temp as $$
declare
  its_name text := 'record_' || to_char(a_part, 'YYYYMMDD');
  is_live boolean := (select has_live_index from kplog.setting);
begin
  if exists (select from kplog.part p where p.part = a_part) then
    return false;
  end if;
  perform from kplog.version for update;  -- one at a time
  if exists (select from kplog.part p where p.part = a_part) then
    return false;
  end if;
  execute format('create table kplog.%I (like kplog.record including all)', its_name);
  if is_live then
    execute format('create index on kplog.%I using gin (kplog.attributes(record) jsonb_path_ops)',
                   its_name);
  end if;
  execute format('alter table kplog.record attach partition kplog.%I for values in (%L)',
                 its_name, a_part);
  insert into kplog.part (part, name, is_finished) values (a_part, its_name, is_live);
  return true;
end $$;

-- The segment's row, which is made where there is none. Days of more than two days from now by
-- this server's clock, or before those that are kept, have no partition of their own.
create or replace function kplog.begin_segment(
  a_host text, a_journal text, a_name text, a_first bigint, a_day date,
  out id bigint, out is_new_day boolean)
language plpgsql security definer set search_path = pg_catalog, pg_temp as $$
declare
  own text := kplog.tenant();
  today date := (clock_timestamp() at time zone 'UTC')::date;
  its_part date := 'infinity';
  setting kplog.setting;
begin
  is_new_day := false;
  select s.id into id from kplog.segment s where s.tenant = own and s.host = a_host
    and s.journal = a_journal and s.name = a_name and s.first = a_first;
  if found then
    return;
  end if;
  select * into setting from kplog.setting for share;
  if a_day between today - setting.days_back and today + 2
      and a_day >= coalesce(setting.pruned_before, a_day) then
    its_part := a_day;
    is_new_day := kplog.make_part(a_day);
  end if;
  insert into kplog.journal (tenant, host, journal) values (own, a_host, a_journal)
    on conflict do nothing;
  insert into kplog.segment (tenant, host, journal, name, first, day, part, is_pruned)
    values (own, a_host, a_journal, a_name, a_first, a_day, its_part,
            coalesce(a_day < setting.pruned_before, false))
    on conflict do nothing returning segment.id into id;
  if id is null then
    select s.id into id from kplog.segment s where s.tenant = own and s.host = a_host
      and s.journal = a_journal and s.name = a_name and s.first = a_first;
  end if;
end $$;

-- Makes the index over attributes of the earliest day that is done and has none, and gets none from
-- another session just now. The day, or nothing. Partitions that are new have time to be filled, as
-- those of days gone by have when a machine was away.
create or replace function kplog.finish_day() returns date
language plpgsql security definer set search_path = pg_catalog, pg_temp as $$
declare
  today date := (clock_timestamp() at time zone 'UTC')::date;
  next kplog.part;
begin
  select * into next from kplog.part p
    where not p.is_finished and p.part < today - 1
      and p.made < clock_timestamp() - interval '12 hours' order by p.part limit 1
      for update skip locked;
  if not found then
    return null;
  end if;
  execute format('create index on kplog.%I using gin (kplog.attributes(record) jsonb_path_ops)',
                 next.name);
  execute format('analyze kplog.%I', next.name);
  update kplog.part p set is_finished = true where p.part = next.part;
  return next.part;
end $$;

-- Removes all days before that one, of all tenants, and remembers that they are removed; none to
-- come. Waits for batches that are being stored. Days and how many records they had.
create or replace function kplog.prune(before date) returns table (day date, records bigint)
language plpgsql security definer set search_path = pg_catalog, pg_temp as $$
declare
  gone kplog.part;
begin
  if before is null or before > (now() at time zone 'UTC')::date + 1 then
    raise exception 'days before % are not over: what is sent then would be removed, too',
      coalesce(before::text, 'null');
  end if;
  if current_setting('lock_timeout') = '0' then
    perform set_config('lock_timeout', '20s', true);
  end if;
  update kplog.setting s set pruned_before = before
    where s.pruned_before is null or s.pruned_before < before;
  create temp table pruned on commit drop as
    select s.id, s.day, s.part, s.records from kplog.segment s where false;
  with now_pruned as (
    update kplog.segment s set is_pruned = true where s.day < before and not s.is_pruned
    returning s.id, s.day, s.part, s.records)
  insert into pg_temp.pruned select * from now_pruned;
  -- Before their tables, as finish_day does.
  perform from kplog.part p where p.part < before order by p.part for update;
  for gone in select * from kplog.part p where p.part < before order by p.part loop
    execute format('alter table kplog.record detach partition kplog.%I', gone.name);
    execute format('drop table kplog.%I', gone.name);
    delete from kplog.part p where p.part = gone.part;
  end loop;
  delete from kplog.record r using pg_temp.pruned p
    where r.part = 'infinity' and p.part = 'infinity' and r.segment = p.id;
  return query select p.day, least(sum(p.records), 9223372036854775807)::bigint
    from pg_temp.pruned p group by 1 order by 1;
  drop table pg_temp.pruned;
end $$;
)sql";

static constexpr std::string_view pg_schema_rights = R"sql(
alter table kplog.record enable row level security;
alter table kplog.segment enable row level security;
alter table kplog.journal enable row level security;
alter table kplog.content enable row level security;
drop policy if exists reading on kplog.record;
drop policy if exists writing on kplog.record;
drop policy if exists own on kplog.segment;
drop policy if exists own on kplog.journal;
drop policy if exists own on kplog.content;
create policy reading on kplog.record for select using (tenant = (select kplog.tenant()));
create policy writing on kplog.record for insert with check (
  tenant = (select kplog.tenant()) and segment = (select kplog.current_segment()));
create policy own on kplog.segment using (tenant = (select kplog.tenant()));
create policy own on kplog.journal using (tenant = (select kplog.tenant()));
create policy own on kplog.content using (tenant = (select kplog.tenant()));

revoke all on all tables in schema kplog from public;
revoke all on all functions in schema kplog from public;
grant select on kplog.version to kplog_ship, kplog_read;
grant select on kplog.part to kplog_read;
grant select on kplog.record, kplog.segment, kplog.journal, kplog.content to kplog_read;
grant insert on kplog.record to kplog_ship;
grant insert, select on kplog.content to kplog_ship;
grant insert, select, update (told, waiting_bytes, given_up, is_given_up_exact) on kplog.journal
  to kplog_ship;
grant select, update (lines, bytes, last, digest, top, batches, again, moved, records, events,
                      kits, earliest, latest, has_timeless) on kplog.segment to kplog_ship;
grant execute on function kplog.tenant() to kplog_ship, kplog_read;
grant execute on function kplog.current_segment(), kplog.finish_day(),
  kplog.begin_segment(text, text, text, bigint, date) to kplog_ship;
-- Whoever inserts where indexes are live computes what is in them.
grant execute on function kplog.attributes(text) to kplog_ship, kplog_read;
grant execute on function kplog.lines_with(date, bigint, jsonb[]),
  kplog.segments_with(date, jsonb[], bigint) to kplog_read;

insert into kplog.version select 1 where not exists (select from kplog.version);
)sql";

std::string pg_schema(const engine_options& options) {
  const std::string live = options.has_live_index ? "true" : "false";
  std::string text;
  for (const std::string_view part :
       {pg_schema_begin, pg_schema_tables, pg_schema_reading, pg_schema_upkeep, pg_schema_rights})
    text += part;
  text += "insert into kplog.setting (has_live_index) values (" + live +
          ")\n  on conflict ((true)) do update"
          " set has_live_index = setting.has_live_index or excluded.has_live_index;\n"
          "insert into kplog.part (part, name, is_finished)\n"
          "  values ('infinity', 'record_other', false) on conflict do nothing;\n";
  return text + "commit;\n";
}

// Making it again would wait for whoever uses it, and they for that.
static bool has_this_version(pg_connection& connection) {
  const bool is_there =
      connection.ask("select to_regclass('kplog.version') is not null").truth(0, 0);
  return is_there &&
         connection.ask("select exists (select from kplog.version where version = 1)").truth(0, 0);
}

static void pg_make(pg_connection& connection, const engine_options& options) {
  try {
    connection.run(pg_schema(options));
  } catch (const engine_error&) {
    // Somebody else may have made it meanwhile.
    connection.run("rollback");
    if (!has_this_version(connection)) throw;
  }
}

void pg_create(const engine_options& options) {
  pg_connection connection(options, true,
                           "a new schema needs CREATE on the database; one that is there belongs "
                           "to who made it");
  connection.connect(false);
  if (!has_this_version(connection)) pg_make(connection, options);
  if (options.has_live_index) connection.run("update kplog.setting set has_live_index = true");
}
