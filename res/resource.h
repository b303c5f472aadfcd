// Ids of the program's resources. The string table itself is res/orvprov.rc.
#pragma once

// The service's names, as the service module and its registration use them.
#define IDS_SERVICENAME 5336
#define IDS_SERVICEDESCRIPTION 5337
#define IDS_SERVICEDISPLAYNAME 5338

// Command line messages of the process entry.
#define IDS_PARSE_NEED_ACCOUNT 5995
#define IDS_PARSE_REGISTER_MODE 5997
#define IDS_REGISTER_SERVER_CAPTION 5998

// The VSS provider registration.
#define IDS_PROVIDER_NAME 5996
#define IDS_PROVIDER_ALREADY_REGISTERED 5999

// The registry scripts: the server's AppID, and the provider class with its ProgIDs.
#define IDR_ORVPROV 1313
#define IDR_ORVANEHARDWAREPROVIDER 1314
