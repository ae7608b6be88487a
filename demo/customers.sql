-- The demo database: a small customer file.
create table customers (
    id        integer primary key,
    civ       text,      -- M or F
    firstname text,
    lastname  text,
    street    text,
    city      text,
    email     text,
    nss       text,      -- social-security number
    birth     text,      -- dd/mm/yyyy
    since     integer,   -- customer since: day number, day 1 = 1 January 1810
    balance   text,      -- exact decimal amount
    notes     text,
    profile   text       -- JSON document
);
insert into customers values
 (1, 'M', 'jean', 'DUPONT', '12 rue de la Paix', 'Paris', 'jean.dupont@example.fr',
  '1 84 12 75 123 456 78', '03/12/1984', 78000, '1250.10',
  'Le client M. Dupond habite au 12 rue de la Paix a Paris. Rappeler avant jeudi.',
  '{"name":"Jean Dupont","tags":["vip","paris"],"orders":[{"ref":"A-100","amount":120.5},{"ref":"A-101","amount":99}],"active":true}'),
 (2, 'F', 'marie', 'LEFÈVRE', '4 place Bellecour', 'Lyon', 'marie.lefevre@example.fr',
  '2 91 03 69 387 002 11', '21/03/1991', 79200, '310.00',
  'Madame Lefèvre préfère être contactée par courriel. Dossier complet.',
  '{"name":"Marie Lefèvre","tags":["newsletter"],"orders":[{"ref":"B-7","amount":15.25}],"active":false}'),
 (3, 'M', 'françois', 'MARTIN', '8 quai des Chartrons', 'Bordeaux', 'f.martin@example.fr',
  '1 75 06 33 063 117 42', '15/06/1975', 76500, '-42.75',
  'M. Martin a signalé un retard de livraison; geste commercial accordé.',
  '{"name":"François Martin","tags":[],"orders":[],"active":true,"note":"caf\u00e9 \"Le Port\""}'),
 (4, 'F', 'élodie', 'ROUSSEAU', '27 rue Nationale', 'Lille', 'elodie.rousseau@example.fr',
  '2 88 11 59 350 044 90', '02/11/1988', 77321, '99999.99',
  'Mme Rousseau, cliente fidèle, souhaite un devis pour 200 unités.',
  '{"name":"Élodie Rousseau","tags":["pro","lille"],"orders":[{"ref":"C-1","amount":1999.99}],"active":true}'),
 (5, 'M', 'thomas', 'BERNARD', '3 cours Mirabeau', 'Aix-en-Provence', 'thomas.bernard@example.fr',
  '1 02 01 13 001 233 07', '30/01/2002', 78655, '0.05',
  'Nouveau client; premier achat en ligne, paiement par carte.',
  '{"name":"Thomas Bernard","tags":["web"],"orders":[{"ref":"D-9","amount":0.05}],"active":true}');
