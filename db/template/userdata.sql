-- The template user database as it stood at schema version 204. Every new profile folder starts
-- from a copy of it, and the start-up upgrades it to the current schema like any older database,
-- so each upgrade step runs for real on every fresh install.
--
-- Column types are limited to TEXT, INTEGER, NUMERIC and BOOL, with keys written as PRIMARY KEY:
-- the column rebuild of the upgrades derives the column names by stripping exactly these words.
-- A column that an upgrade adds must not already appear inside another column's name of its
-- table, or the upgrade takes it as present.
-- Dates are TEXT ("yyyyMMdd"), so that comparisons with bound strings stay text comparisons.

CREATE TABLE userdata_meta (itemkey TEXT PRIMARY KEY, itemvalue TEXT);
INSERT INTO userdata_meta (itemkey, itemvalue) VALUES ('schema_version', '204');
INSERT INTO userdata_meta (itemkey, itemvalue) VALUES ('software_modified_version', '');

-- Profiles
CREATE TABLE user_users (
    user_id INTEGER PRIMARY KEY,
    name TEXT,
    password TEXT,
    created TEXT,
    dob TEXT,
    sex INTEGER,
    measurement_units INTEGER,
    energy_units INTEGER,
    web_username TEXT,
    web_password TEXT
);

-- Dated facts: sparse rows, the latest on or before a day is in force.
CREATE TABLE user_target (
    user_id INTEGER,
    date TEXT,
    target_calories NUMERIC,
    target_fat NUMERIC,
    target_protein NUMERIC,
    target_fiber NUMERIC,
    target_carb NUMERIC
);
CREATE INDEX user_target_user_date_idx ON user_target (user_id, date);

CREATE TABLE user_misc (
    user_id INTEGER,
    date TEXT,
    height NUMERIC,
    goal INTEGER,
    activity INTEGER
);
CREATE INDEX user_misc_user_date_idx ON user_misc (user_id, date);

CREATE TABLE user_checkins (
    user_id INTEGER,
    date TEXT,
    weight NUMERIC,
    chest NUMERIC,
    hip NUMERIC,
    thigh NUMERIC,
    waist NUMERIC,
    note TEXT
);
CREATE INDEX user_checkins_user_date_idx ON user_checkins (user_id, date);

CREATE TABLE water_diary (
    user_id INTEGER,
    date TEXT,
    cups INTEGER
);
CREATE INDEX water_diary_user_date_idx ON water_diary (user_id, date);

-- The diary and the meal plan share their layout. Rows of food_diary and group_diary without a
-- date are saved meals.
CREATE TABLE food_diary (
    food_id INTEGER PRIMARY KEY,
    user_id INTEGER,
    date TEXT,
    meal INTEGER,
    status INTEGER,
    ref_id INTEGER,
    group_id INTEGER,
    food_name TEXT,
    serving_id INTEGER,
    serv_name TEXT,
    size NUMERIC,
    calories NUMERIC,
    fat NUMERIC,
    protein NUMERIC,
    carb NUMERIC,
    fiber NUMERIC
);
CREATE INDEX food_diary_user_date_idx ON food_diary (user_id, date);
CREATE INDEX food_diary_group_idx ON food_diary (group_id);

CREATE TABLE food_mealplan (
    food_id INTEGER PRIMARY KEY,
    user_id INTEGER,
    date TEXT,
    meal INTEGER,
    status INTEGER,
    ref_id INTEGER,
    group_id INTEGER,
    food_name TEXT,
    serving_id INTEGER,
    serv_name TEXT,
    size NUMERIC,
    calories NUMERIC,
    fat NUMERIC,
    protein NUMERIC,
    carb NUMERIC,
    fiber NUMERIC
);
CREATE INDEX food_mealplan_user_date_idx ON food_mealplan (user_id, date);

CREATE TABLE exer_diary (
    ex_id INTEGER PRIMARY KEY,
    user_id INTEGER,
    date TEXT,
    duration NUMERIC,
    rate NUMERIC,
    name TEXT,
    status INTEGER
);
CREATE INDEX exer_diary_user_date_idx ON exer_diary (user_id, date);

CREATE TABLE exer_mealplan (
    ex_id INTEGER PRIMARY KEY,
    user_id INTEGER,
    date TEXT,
    duration NUMERIC,
    rate NUMERIC,
    name TEXT,
    status INTEGER
);
CREATE INDEX exer_mealplan_user_date_idx ON exer_mealplan (user_id, date);

CREATE TABLE group_diary (
    group_id INTEGER PRIMARY KEY,
    user_id INTEGER,
    name TEXT,
    status INTEGER,
    date TEXT
);
CREATE INDEX group_diary_user_date_idx ON group_diary (user_id, date);

-- The user's own foods and exercises.
CREATE TABLE custom_foods (
    food_id INTEGER PRIMARY KEY,
    category_id INTEGER,
    name TEXT,
    serv_name TEXT,
    calories NUMERIC,
    fat NUMERIC,
    protein NUMERIC,
    carb NUMERIC,
    fiber NUMERIC
);
CREATE INDEX custom_foods_category_idx ON custom_foods (category_id);

CREATE TABLE custom_food_cats (
    category_id INTEGER PRIMARY KEY,
    parent_id INTEGER,
    name TEXT
);
CREATE INDEX custom_food_cats_parent_idx ON custom_food_cats (parent_id);

CREATE TABLE custom_exercises (
    activity_id INTEGER PRIMARY KEY,
    category_id INTEGER,
    description TEXT,
    scale NUMERIC
);
CREATE INDEX custom_exercises_category_idx ON custom_exercises (category_id);

CREATE TABLE custom_exercise_cats (
    category_id INTEGER PRIMARY KEY,
    parent_id INTEGER,
    description TEXT
);
CREATE INDEX custom_exercise_cats_parent_idx ON custom_exercise_cats (parent_id);

-- Change tracking per synchronisation device. The sync tables are keyed by device and the
-- tracked row's key, so that the triggers' INSERT OR REPLACE keeps one row per device and key.
CREATE TABLE userdata_sync_devices (
    id INTEGER PRIMARY KEY,
    name TEXT
);
INSERT INTO userdata_sync_devices (id, name) VALUES (0, 'website');

CREATE TABLE userdata_sync_tables (
    source_table TEXT,
    dest_table TEXT,
    fields TEXT
);
INSERT INTO userdata_sync_tables VALUES ('food_diary', 'food_diary_sync', 'food_id');
INSERT INTO userdata_sync_tables VALUES ('exer_diary', 'exer_diary_sync', 'ex_id');
INSERT INTO userdata_sync_tables VALUES ('group_diary', 'group_diary_sync', 'group_id');
INSERT INTO userdata_sync_tables VALUES ('user_checkins', 'user_checkins_sync', 'user_id, date');
INSERT INTO userdata_sync_tables VALUES ('water_diary', 'water_diary_sync', 'user_id, date');

CREATE TABLE food_diary_sync (
    device INTEGER,
    state INTEGER,
    food_id INTEGER,
    palm_id INTEGER,
    PRIMARY KEY (device, food_id)
);
CREATE INDEX food_diary_sync_device_state_idx ON food_diary_sync (device, state);
CREATE INDEX food_diary_sync_food_idx ON food_diary_sync (food_id);

CREATE TABLE exer_diary_sync (
    device INTEGER,
    state INTEGER,
    ex_id INTEGER,
    palm_id INTEGER,
    PRIMARY KEY (device, ex_id)
);
CREATE INDEX exer_diary_sync_device_state_idx ON exer_diary_sync (device, state);
CREATE INDEX exer_diary_sync_ex_idx ON exer_diary_sync (ex_id);

CREATE TABLE group_diary_sync (
    device INTEGER,
    state INTEGER,
    group_id INTEGER,
    palm_id INTEGER,
    PRIMARY KEY (device, group_id)
);
CREATE INDEX group_diary_sync_device_state_idx ON group_diary_sync (device, state);

CREATE TABLE user_checkins_sync (
    device INTEGER,
    state INTEGER,
    user_id INTEGER,
    date TEXT,
    palm_id INTEGER,
    PRIMARY KEY (device, user_id, date)
);
CREATE INDEX user_checkins_sync_device_state_idx ON user_checkins_sync (device, state);

CREATE TABLE water_diary_sync (
    device INTEGER,
    state INTEGER,
    user_id INTEGER,
    date TEXT,
    palm_id INTEGER,
    PRIMARY KEY (device, user_id, date)
);
CREATE INDEX water_diary_sync_device_state_idx ON water_diary_sync (device, state);
