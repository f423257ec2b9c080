-- A row for each record, in a partition for each day on which it came. Safe to run again.
CREATE TABLE IF NOT EXISTS heartbeats (
    day date NOT NULL,
    received timestamptz NOT NULL,
    app text NOT NULL,
    development_key boolean NOT NULL,
    client_id text NOT NULL,
    installation_id text NOT NULL,
    kit_type bigint NOT NULL,
    kit_version text NOT NULL,
    system_version text NOT NULL,
    device_model text NOT NULL,
    locale text NOT NULL,
    made_seconds bigint NOT NULL,
    made_nanos bigint NOT NULL
) PARTITION BY RANGE (day);
CREATE INDEX IF NOT EXISTS heartbeats_of_installation ON heartbeats (installation_id);

-- A metric names no device.
CREATE TABLE IF NOT EXISTS metrics (
    day date NOT NULL,
    received timestamptz NOT NULL,
    app text NOT NULL,
    development_key boolean NOT NULL,
    kind text NOT NULL,
    name text NOT NULL,
    value bigint NOT NULL,
    made_seconds bigint NOT NULL,
    made_nanos bigint NOT NULL
) PARTITION BY RANGE (day);

-- Erases one installation and answers how many rows that were: SELECT erase_installation('1808ACCE-...');
CREATE OR REPLACE FUNCTION erase_installation(id text) RETURNS bigint LANGUAGE sql AS $$
    WITH erased AS (DELETE FROM heartbeats WHERE installation_id = id RETURNING 1) SELECT count(*) FROM erased
$$;

-- Makes the partitions of today and tomorrow, and drops those that are older than so many days.
CREATE OR REPLACE FUNCTION keep_days(today date, days integer) RETURNS void LANGUAGE plpgsql AS $$
DECLARE
    parent text;
    partition text;
    day date;
BEGIN
    PERFORM pg_advisory_xact_lock(1902);
    FOREACH parent IN ARRAY ARRAY['heartbeats', 'metrics'] LOOP
        FOREACH day IN ARRAY ARRAY[today, today + 1] LOOP
            EXECUTE format('CREATE TABLE IF NOT EXISTS %I PARTITION OF %I FOR VALUES FROM (%L) TO (%L)',
                           parent || to_char(day, '_YYYYMMDD'), parent, day, day + 1);
        END LOOP;
        FOR partition IN SELECT inhrelid::regclass::text FROM pg_inherits WHERE inhparent = parent::regclass
        LOOP
            IF to_date(right(partition, 8), 'YYYYMMDD') < today - days THEN
                EXECUTE format('DROP TABLE %I', partition);
            END IF;
        END LOOP;
    END LOOP;
END
$$;
