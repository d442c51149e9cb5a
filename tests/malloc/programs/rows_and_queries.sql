-- 200 000 rows made by a recursive query inside one transaction, an index,
-- then queries whose results depend only on the rows.
.bail on
PRAGMA page_size = 512;
CREATE TABLE item (id INTEGER PRIMARY KEY, category INTEGER, name TEXT, price REAL, note TEXT);
BEGIN;
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 200000)
INSERT INTO item (id, category, name, price, note)
SELECT i,
       (i * 7919) % 97,
       'item-' || printf('%06d', (i * 104729) % 200000),
       ((i * 31) % 10007) / 10.0,
       substr('lorem ipsum dolor sit amet consectetur adipiscing elit', 1 + i % 40, 5 + i % 17)
FROM n;
COMMIT;
CREATE INDEX item_category_price ON item (category, price);
CREATE INDEX item_name ON item (name);
SELECT count(*), sum(category), round(sum(price), 1), count(DISTINCT name) FROM item;
SELECT category, count(*), round(avg(price), 3), min(name), max(name)
  FROM item GROUP BY category ORDER BY category LIMIT 12;
SELECT id, name, price FROM item WHERE category = 42 AND price BETWEEN 100 AND 101 ORDER BY price, id;
SELECT name, id FROM item WHERE name LIKE 'item-19999%' ORDER BY name;
SELECT note, count(*) AS c FROM item GROUP BY note ORDER BY c DESC, note LIMIT 10;
SELECT category, sum(price > previous) FROM
  (SELECT category, price, lag(price) OVER (PARTITION BY category ORDER BY id) AS previous FROM item)
  GROUP BY category ORDER BY 2 DESC, 1 LIMIT 5;
SELECT c.category, count(*), round(sum(i.price), 1) FROM (SELECT DISTINCT category FROM item) c
  JOIN item i ON i.category = c.category AND i.price < 5 GROUP BY c.category ORDER BY 1 LIMIT 8;
UPDATE item SET price = price * 2 WHERE category < 10;
DELETE FROM item WHERE id % 3 = 0;
SELECT count(*), round(sum(price), 1), max(id) FROM item;
SELECT group_concat(name, ',') FROM (SELECT name FROM item WHERE category = 7 ORDER BY name LIMIT 20);
