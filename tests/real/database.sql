-- The books of Skylark & Sons, kite makers: a firm that exists only here. The launcher runs these
-- statements, each ended by a semicolon at the end of its line, in an empty database in memory.

CREATE TABLE "day" (
  "day_id" INTEGER PRIMARY KEY, "year" INTEGER, "quarter" VARCHAR(2), "month" INTEGER,
  "month_name" VARCHAR(20), "week" INTEGER, "date" DATE);
INSERT INTO "day" VALUES
  (1, 2023, 'Q1', 3, 'March', 10, '2023-03-08'),
  (2, 2023, 'Q2', 5, 'May', 21, '2023-05-25'),
  (3, 2024, 'Q1', 2, 'February', 7, '2024-02-14'),
  (4, 2024, 'Q4', 12, 'December', 50, '2024-12-12');

-- A shop in Monaco or in Singapore lies in no region.
CREATE TABLE "shop" (
  "shop_id" INTEGER PRIMARY KEY, "country" VARCHAR(40), "region" VARCHAR(40), "city" VARCHAR(40),
  "name" VARCHAR(60), "size" VARCHAR(10), "street" VARCHAR(60));
INSERT INTO "shop" VALUES
  (1, 'Ireland', 'Munster', 'Cork', 'Skylark Cork', 'large', '1 Gull Row'),
  (2, 'Monaco', '', 'Monaco', 'Skylark Monaco', 'small', '2 Quai du Vent'),
  (3, '日本', '近畿', '京都', '雲雀 京都', 'small', '三条通'),
  (4, 'Singapore', '', 'Singapore', 'Skylark Singapore', 'large', '4 Kite Walk');

CREATE TABLE "person" (
  "person_id" INTEGER PRIMARY KEY, "boss_id" INTEGER, "name" VARCHAR(60), "post" VARCHAR(40),
  "grade" INTEGER, "hours" DECIMAL(5, 2), "keyholder" BOOLEAN, "joined" DATE);
INSERT INTO "person" VALUES
  (1, NULL, 'Agatha Skylark', 'Owner', 9, 38.50, TRUE, '1998-04-01'),
  (2, 1, 'Bláthnaid Ó Sé', 'Shop keeper', 5, 37.00, TRUE, '2011-09-15'),
  (3, 1, '山田 凧', 'Shop keeper', 5, 40.00, TRUE, '2015-01-05'),
  (4, 2, 'Cormac Finch', 'Assistant', 2, 20.25, FALSE, '2022-06-20');
CREATE TABLE "person_closure" ("boss_id" INTEGER, "person_id" INTEGER, "distance" INTEGER);
INSERT INTO "person_closure" VALUES
  (1, 1, 0), (2, 2, 0), (3, 3, 0), (4, 4, 0), (1, 2, 1), (1, 3, 1), (2, 4, 1), (1, 4, 2);

CREATE TABLE "kite" (
  "kite_id" INTEGER PRIMARY KEY, "line" VARCHAR(40), "model" VARCHAR(60), "sail_area" DECIMAL(6, 2),
  "lines" INTEGER, "stunt" BOOLEAN, "designer" VARCHAR(40), "designed" DATE,
  "launch_time" TIME, "changed" TIMESTAMP);
INSERT INTO "kite" VALUES
  (1, 'Deltas', 'Buzzard', 1.20, 1, FALSE, 'A. Skylark', '2001-02-03', '09:00:00', '2020-01-01 10:00:00'),
  (2, 'Deltas', ' Hobby ', 2.40, 2, TRUE, 'C. Finch', '2012-11-30', '10:30:00', '2021-01-01 10:00:00'),
  (3, 'Boxes & Cells', 'Box [No. 1]', 3.10, 1, FALSE, 'A. Skylark', '1999-05-17', '08:15:00', '2022-01-01 10:00:00'),
  (4, 'Boxes & Cells', '六角凧', 2.75, 4, TRUE, '山田 凧', '2016-08-08', '14:45:00', '2023-01-01 10:00:00');

CREATE TABLE "sale" (
  "day_id" INTEGER, "shop_id" INTEGER, "person_id" INTEGER, "kite_id" INTEGER, "customer_id" INTEGER,
  "pieces" INTEGER, "price" DECIMAL(10, 2), "wind" VARCHAR(20));
INSERT INTO "sale" VALUES
  (1, 1, 2, 1, 501, 3, 44.70, 'light'),
  (1, 3, 3, 4, 502, 1, 129.00, '<light> & "warm"'),
  (2, 1, 4, 2, 503, 2, 71.80, 'strong'),
  (3, 2, 1, 3, 501, 1, 88.00, 'strong'),
  (4, 4, 1, 1, 504, 6, 89.40, 'light');

CREATE TABLE "repair" (
  "day_id" INTEGER, "shop_id" INTEGER, "kite_id" INTEGER, "minutes" INTEGER, "charge" DECIMAL(10, 2));
INSERT INTO "repair" VALUES
  (2, 1, 1, 25, 12.50), (3, 3, 4, 90, 40.00), (4, 2, 3, 10, 0.00);
