-- :rows French notes of about 100 to 300 bytes, made from the name dictionaries
-- of data/ and a few dozen sentence pieces, the same for every run (the
-- picks are hashes of the row number).  Expects the tables first_names and
-- surnames.
create function pick(items text[], i bigint, salt int) returns text
language sql immutable parallel safe as $$
  select items[1 + abs(hashint8(i * 7919 + salt)) % array_length(items, 1)]
$$;
create table bench_notes as
with v as (
  select array_agg(name order by name) as firsts from first_names
), s as (
  select array_agg(name order by name) as lasts from surnames
), words as (
  select array['M.', 'Madame', 'Monsieur', 'Mme', 'Le client', 'La cliente'] as civ,
         array['rue de la Paix', 'avenue Jean Jaurès', 'boulevard Voltaire', 'place Bellecour',
               'quai des Chartrons', 'rue Nationale', 'cours Mirabeau', 'impasse des Lilas',
               'chemin du Moulin', 'allée des Érables'] as street,
         array['Paris', 'Lyon', 'Bordeaux', 'Lille', 'Marseille', 'Toulouse', 'Nantes',
               'Strasbourg', 'Rennes', 'Aix-en-Provence', 'Saint-Étienne', 'Besançon'] as city,
         array['Rappeler avant jeudi.', 'Dossier complet, toutes les pièces sont reçues.', 'Préfère être contacté par courriel.',
               'A signalé un retard de livraison; geste commercial accordé.',
               'Souhaite un devis pour deux cents unités.', 'Paiement par carte, premier achat en ligne.',
               'Client fidèle depuis dix ans, à recontacter pour la nouvelle offre.',
               'Adresse à vérifier : le courrier revient.', 'Demande un échéancier de paiement.',
               'Réclamation close le mois dernier.', 'Parrainé par un autre client.',
               'Ne souhaite plus recevoir la lettre d''information.'] as remark
)
select i as id,
       'Appel reçu le ' || lpad((1 + abs(hashint8(i + 5)) % 28)::text, 2, '0') || '/' ||
       lpad((1 + abs(hashint8(i + 9)) % 12)::text, 2, '0') || '/20' ||
       lpad((abs(hashint8(i + 13)) % 25)::text, 2, '0') || ' à ' ||
       lpad((8 + abs(hashint8(i + 21)) % 11)::text, 2, '0') || 'h' ||
       lpad((abs(hashint8(i + 23)) % 60)::text, 2, '0') || ' : ' ||
       pick(civ, i, 1) || ' ' || pick(firsts, i, 2) || ' ' || upper(pick(lasts, i, 3)) ||
       ' habite au ' || (1 + abs(hashint8(i)) % 120) || ' ' || pick(street, i, 4) || ' à ' ||
       pick(city, i, 5) || '. ' || pick(remark, i, 6) ||
       case when abs(hashint8(i + 17)) % 3 > 0 then ' ' || pick(remark, i, 7) else '' end as notes
from v, s, words, generate_series(1, :rows) i;
analyze bench_notes;
select count(*) as rows, min(octet_length(notes)) as min_bytes,
       round(avg(octet_length(notes))) as avg_bytes, max(octet_length(notes)) as max_bytes,
       count(*) filter (where notes ~* 'dupont') as dupont
from bench_notes;
