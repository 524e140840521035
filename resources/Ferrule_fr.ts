<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr" sourcelanguage="en">
<context>
    <name>SslSocket</name>
    <message>
        <source>Also, the host name &quot;%0&quot; does not match the host name in the certificate &quot;%1&quot;.</source>
        <translation>De plus, le nom d’hôte «&#xa0;%0&#xa0;» ne correspond pas au nom d’hôte «&#xa0;%1&#xa0;» du certificat.</translation>
    </message>
    <message>
        <source>An unknown error occurred</source>
        <translation>Une erreur inconnue s’est produite</translation>
    </message>
    <message>
        <source>Authority and issuer serial number mismatch</source>
        <translation>Le numéro de série de l’autorité et celui de l’émetteur ne correspondent pas</translation>
    </message>
    <message>
        <source>Authority and subject key identifier mismatch</source>
        <translation>L’identifiant de clé de l’autorité et celui du sujet ne correspondent pas</translation>
    </message>
    <message>
        <source>Caution, the host name &quot;%0&quot; does not match the host name in the certificate &quot;%1&quot;.</source>
        <translation>Attention, le nom d’hôte «&#xa0;%0&#xa0;» ne correspond pas au nom d’hôte «&#xa0;%1&#xa0;» du certificat.</translation>
    </message>
    <message>
        <source>Certificate not trusted</source>
        <translation>Certificat non approuvé</translation>
    </message>
    <message>
        <source>Certificate rejected</source>
        <translation>Certificat rejeté</translation>
    </message>
    <message>
        <source>Certificate signature failure</source>
        <translation>Échec de la vérification de la signature du certificat</translation>
    </message>
    <message>
        <source>Error creating SSL session</source>
        <translation>Erreur lors de la création de la session SSL</translation>
    </message>
    <message>
        <source>Error creating SSL session, %1</source>
        <translation>Erreur lors de la création de la session SSL&#xa0;: %1</translation>
    </message>
    <message>
        <source>Error loading certificate, %1</source>
        <translation>Erreur lors du chargement du certificat&#xa0;: %1</translation>
    </message>
    <message>
        <source>Error loading private key, %1</source>
        <translation>Erreur lors du chargement de la clé privée&#xa0;: %1</translation>
    </message>
    <message>
        <source>Error setting pooled SSL session</source>
        <translation>Erreur lors de l’affectation de la session SSL issue du pool</translation>
    </message>
    <message>
        <source>Failed to load the list of trusted CAs: %1</source>
        <translation>Échec du chargement de la liste des autorités de certification de confiance&#xa0;: %1</translation>
    </message>
    <message>
        <source>Failed to read from SSL, %1</source>
        <translation>Échec de la lecture des données SSL&#xa0;: %1</translation>
    </message>
    <message>
        <source>Failed to write protocol data to BIO</source>
        <translation>Échec de l’écriture des données du protocole dans le BIO</translation>
    </message>
    <message>
        <source>Format error in certificate&apos;s notAfter field</source>
        <translation>Erreur de format dans le champ notAfter du certificat</translation>
    </message>
    <message>
        <source>Format error in certificate&apos;s notBefore field</source>
        <translation>Erreur de format dans le champ notBefore du certificat</translation>
    </message>
    <message>
        <source>Invalid CA certificate</source>
        <translation>Certificat d’autorité de certification non valide</translation>
    </message>
    <message>
        <source>Invalid or empty cipher list, %1</source>
        <translation>Liste de suites de chiffrement vide ou non valide&#xa0;: %1</translation>
    </message>
    <message>
        <source>Key usage does not include certificate signing</source>
        <translation>L’usage de la clé n’inclut pas la signature de certificats</translation>
    </message>
    <message>
        <source>Out of memory</source>
        <translation>Mémoire insuffisante</translation>
    </message>
    <message>
        <source>Path length constraint exceeded</source>
        <translation>Longueur maximale du chemin de certification dépassée</translation>
    </message>
    <message>
        <source>Private key does not certify public key, %1</source>
        <translation>La clé privée ne correspond pas à la clé publique&#xa0;: %1</translation>
    </message>
    <message>
        <source>Private key required in server mode</source>
        <translation>Clé privée requise en mode serveur</translation>
    </message>
    <message>
        <source>QtSslSocket: Certificate required in server mode</source>
        <translation>QtSslSocket&#xa0;: certificat requis en mode serveur</translation>
    </message>
    <message>
        <source>SSL error: %1</source>
        <translation>Erreur SSL&#xa0;: %1</translation>
    </message>
    <message>
        <source>Self-signed certificate</source>
        <translation>Certificat autosigné</translation>
    </message>
    <message>
        <source>Self-signed certificate in certificate chain</source>
        <translation>Certificat autosigné dans la chaîne de certificats</translation>
    </message>
    <message>
        <source>Subject issuer mismatch</source>
        <translation>Le sujet et l’émetteur ne correspondent pas</translation>
    </message>
    <message>
        <source>The SSL certificate expired on %1.</source>
        <translation>Le certificat SSL a expiré le %1.</translation>
    </message>
    <message>
        <source>The SSL certificate has been verified.</source>
        <translation>Le certificat SSL a été vérifié.</translation>
    </message>
    <message>
        <source>The SSL certificate is not valid until %1.</source>
        <translation>Le certificat SSL n’est valide qu’à partir du %1.</translation>
    </message>
    <message>
        <source>The certificate has expired</source>
        <translation>Le certificat a expiré</translation>
    </message>
    <message>
        <source>The certificate is not yet valid</source>
        <translation>Le certificat n’est pas encore valide</translation>
    </message>
    <message>
        <source>Unable to decode issuer public key</source>
        <translation>Impossible de décoder la clé publique de l’émetteur</translation>
    </message>
    <message>
        <source>Unable to decrypt certificate&apos;s signature</source>
        <translation>Impossible de déchiffrer la signature du certificat</translation>
    </message>
    <message>
        <source>Unable to get issuer certificate</source>
        <translation>Impossible d’obtenir le certificat de l’émetteur</translation>
    </message>
    <message>
        <source>Unable to get local issuer certificate</source>
        <translation>Impossible de trouver localement le certificat de l’émetteur</translation>
    </message>
    <message>
        <source>Unable to verify the first certificate</source>
        <translation>Impossible de vérifier le premier certificat</translation>
    </message>
    <message>
        <source>Unknown error</source>
        <translation>Erreur inconnue</translation>
    </message>
    <message>
        <source>Unsupported certificate purpose</source>
        <translation>Usage du certificat non pris en charge</translation>
    </message>
</context>
</TS>
