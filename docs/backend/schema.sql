-- Parlino's tables in a Supabase (PostgreSQL 15) project. Run it once in the project's SQL editor.
-- The app talks to PostgREST with the project's public ("anon") key and no user sign-in, so the
-- row-level security below is what limits that key: it may read the user rows, change only the
-- voice preference and the device of one, and append usage events that it can never read back.
-- The roles anon and authenticated exist in every Supabase project.

create table if not exists public.app_users (
    id                 uuid        primary key default gen_random_uuid(),
    device_id          text        not null unique,
    platform           text        not null default 'linux',
    email              text        unique,
    preferred_provider text,
    preferred_voice    text,
    created_at         timestamptz not null default now(),
    last_seen_at       timestamptz
);

create table if not exists public.usage_events (
    id              bigint      generated always as identity primary key,
    device_id       text        not null,
    event_type      text        not null,
    provider        text        not null,
    voice_tier      text        not null,
    character_count integer     not null check (character_count >= 0),
    cost_cents      integer     not null check (cost_cents >= 0),
    platform        text        not null,
    created_at      timestamptz not null,
    feature         text,
    received_at     timestamptz not null default now()
);

create index if not exists usage_events_device_created on public.usage_events (device_id, created_at);

alter table public.app_users enable row level security;
alter table public.usage_events enable row level security;

-- app_users: the app reads a row by device_id or e-mail and writes the voice preference of the row
-- with the user's e-mail. Creating, deleting and linking rows (the e-mail) is the web backend's work,
-- done with the service key, which bypasses these rules.
revoke all on public.app_users from anon, authenticated;
grant select on public.app_users to anon, authenticated;
grant update (preferred_provider, preferred_voice, device_id) on public.app_users to anon, authenticated;

drop policy if exists app_users_read on public.app_users;
create policy app_users_read on public.app_users for select to anon, authenticated using (true);

drop policy if exists app_users_voice_preference on public.app_users;
create policy app_users_voice_preference on public.app_users for update to anon, authenticated
    using (email is not null) with check (email is not null);

-- usage_events: append only. No select, update or delete for the public key.
revoke all on public.usage_events from anon, authenticated;
grant insert (device_id, event_type, provider, voice_tier, character_count, cost_cents, platform, created_at,
              feature) on public.usage_events to anon, authenticated;

drop policy if exists usage_events_append on public.usage_events;
create policy usage_events_append on public.usage_events for insert to anon, authenticated
    with check (character_count >= 0 and cost_cents >= 0 and length(device_id) between 1 and 100);
