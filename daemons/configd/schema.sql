-- The configuration of one unit, version 1.
--
-- Numbers of models, modes and switches are those of kestro_data.h. The head-end unit is the switch 10001, the only one
-- without model and MAC address; its ports are there from the beginning. Lists keep the order in which they were given:
-- that is what "position" is for, and its bounds are those of the lists.

BEGIN;
PRAGMA application_id = 0x4B434647;
PRAGMA user_version = 1;

-- revision: how often the configuration was changed. mgmt_vlan_id: 0 until it is set.
CREATE TABLE setting (
  name TEXT NOT NULL PRIMARY KEY CHECK (name IN ('revision', 'mgmt_vlan_id')),
  value INTEGER NOT NULL CHECK (value >= 0),
  CHECK (name <> 'mgmt_vlan_id' OR value <= 4050)
) STRICT, WITHOUT ROWID;

-- cfg_pending: what is stored may differ from what the hardware holds.
CREATE TABLE edge_switch (
  number INTEGER NOT NULL PRIMARY KEY CHECK (number BETWEEN 1 AND 512 OR number = 10001),
  model INTEGER NOT NULL CHECK (model BETWEEN 0 AND 19),
  mac_address TEXT UNIQUE CHECK (
    length(mac_address) = 17 AND
    mac_address GLOB '[0-9A-F][0-9A-F]:[0-9A-F][0-9A-F]:[0-9A-F][0-9A-F]:[0-9A-F][0-9A-F]:[0-9A-F][0-9A-F]:[0-9A-F][0-9A-F]'),
  alias TEXT NOT NULL DEFAULT '' CHECK (length(CAST(alias AS BLOB)) <= 8),
  description TEXT NOT NULL DEFAULT '' CHECK (length(CAST(description AS BLOB)) <= 50),
  cfg_pending INTEGER NOT NULL DEFAULT 1 CHECK (cfg_pending IN (0, 1)),
  CHECK ((number = 10001) = (mac_address IS NULL)),
  CHECK ((number = 10001) = (model = 0))
) STRICT;

CREATE TABLE port (
  switch_number INTEGER NOT NULL REFERENCES edge_switch (number) ON DELETE CASCADE,
  port_number INTEGER NOT NULL CHECK (port_number BETWEEN 1 AND 64),
  enabled INTEGER NOT NULL DEFAULT 1 CHECK (enabled IN (0, 1)),
  description TEXT NOT NULL DEFAULT '' CHECK (length(CAST(description AS BLOB)) <= 50),
  vlan_mode INTEGER NOT NULL DEFAULT 1 CHECK (vlan_mode IN (1, 2, 3)),
  PRIMARY KEY (switch_number, port_number)
) STRICT, WITHOUT ROWID;

CREATE TABLE port_vlan (
  switch_number INTEGER NOT NULL,
  port_number INTEGER NOT NULL,
  position INTEGER NOT NULL CHECK (position BETWEEN 0 AND 129),
  vlan_id INTEGER NOT NULL CHECK (vlan_id BETWEEN 1 AND 4050),
  PRIMARY KEY (switch_number, port_number, position),
  UNIQUE (switch_number, port_number, vlan_id),
  FOREIGN KEY (switch_number, port_number) REFERENCES port (switch_number, port_number) ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

CREATE TABLE mac_filter (
  switch_number INTEGER NOT NULL CHECK (switch_number <> 10001),
  port_number INTEGER NOT NULL,
  position INTEGER NOT NULL CHECK (position BETWEEN 0 AND 63),
  mac TEXT NOT NULL CHECK (length(mac) = 17),
  mask TEXT NOT NULL CHECK (length(mask) = 17),
  PRIMARY KEY (switch_number, port_number, position),
  UNIQUE (switch_number, port_number, mac, mask),
  FOREIGN KEY (switch_number, port_number) REFERENCES port (switch_number, port_number) ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

CREATE TABLE dhcp_service (
  name TEXT NOT NULL PRIMARY KEY CHECK (name <> '' AND length(CAST(name AS BLOB)) <= 50),
  address_range TEXT NOT NULL CHECK (address_range <> ''),
  dhcp_range TEXT NOT NULL
) STRICT, WITHOUT ROWID;

CREATE TABLE dhcp_lease (
  service_name TEXT NOT NULL REFERENCES dhcp_service (name) ON DELETE CASCADE,
  position INTEGER NOT NULL CHECK (position >= 0),
  ip TEXT NOT NULL CHECK (length(ip) BETWEEN 7 AND 15),
  mac TEXT NOT NULL CHECK (length(mac) = 17),
  PRIMARY KEY (service_name, position),
  UNIQUE (service_name, ip)
) STRICT, WITHOUT ROWID;

-- An address is the same however it is written.
CREATE UNIQUE INDEX dhcp_lease_mac ON dhcp_lease (service_name, upper(replace(mac, '-', ':')));

INSERT INTO setting (name, value) VALUES ('revision', 0), ('mgmt_vlan_id', 0);
INSERT INTO edge_switch (number, model) VALUES (10001, 0);
INSERT INTO port (switch_number, port_number) VALUES
  (10001, 1), (10001, 2), (10001, 3), (10001, 4), (10001, 5), (10001, 6), (10001, 7), (10001, 8);
COMMIT;
