<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name></name>
    <message id="home_status_active">
        <source></source>
        <translation>Protection on</translation>
    </message>
    <message id="home_status_inactive">
        <source></source>
        <translation>Protection off</translation>
    </message>
    <message id="home_open_stats">
        <source></source>
        <translation>Statistics</translation>
    </message>
    <message id="home_open_settings">
        <source></source>
        <translation>Preferences…</translation>
    </message>
    <message id="about_title">
        <source></source>
        <translation>About Sentrel</translation>
    </message>
    <message id="notif_alert_title">
        <source></source>
        <translation>Onlooker detected</translation>
    </message>
    <message id="notif_alert_text">
        <source></source>
        <translation>Someone seems to be watching your screen. The display has been darkened.</translation>
    </message>
    <message id="onboarding_camera_title">
        <source></source>
        <translation>Allow the camera</translation>
    </message>
    <message id="onboarding_camera_body">
        <source></source>
        <translation>Sentrel uses the camera to notice people looking over your shoulder. Images are analysed on this computer: nothing is recorded, nothing is sent.</translation>
    </message>
    <message id="onboarding_continue">
        <source></source>
        <translation>Continue</translation>
    </message>
    <message id="onboarding_overlay_title">
        <source></source>
        <translation>A filter over the whole screen</translation>
    </message>
    <message id="onboarding_notif_title">
        <source></source>
        <translation>Get alerts</translation>
    </message>
    <message id="onboarding_notif_body">
        <source></source>
        <translation>As soon as an onlooker is detected, Sentrel tells you with a notification and a sound.</translation>
    </message>
    <message id="onboarding_grant">
        <source></source>
        <translation>Allow notifications</translation>
    </message>
    <message id="onboarding_skip">
        <source></source>
        <translation>Later</translation>
    </message>
    <message id="stats_title">
        <source></source>
        <translation>Statistics</translation>
    </message>
    <message id="stats_header">
        <source></source>
        <translation>Your protection in figures</translation>
    </message>
    <message id="stats_alerts_label">
        <source></source>
        <translation>Alerts</translation>
    </message>
    <message id="stats_sessions_label">
        <source></source>
        <translation>Sessions</translation>
    </message>
    <message id="stats_time_label">
        <source></source>
        <translation>Time protected</translation>
    </message>
    <message id="stats_reset">
        <source></source>
        <translation>Reset…</translation>
    </message>
    <message id="stats_reset_confirm">
        <source></source>
        <translation>Reset all counters to zero? This cannot be undone.</translation>
    </message>
    <message id="stats_reset_yes">
        <source></source>
        <translation>Reset</translation>
    </message>
    <message id="stats_reset_cancel">
        <source></source>
        <translation>Cancel</translation>
    </message>
    <message id="stats_back">
        <source></source>
        <translation>Back</translation>
    </message>
    <message id="about_version">
        <source></source>
        <translation>Version</translation>
    </message>
    <message id="about_developer_title">
        <source></source>
        <translation>Development</translation>
    </message>
    <message id="about_developer_body">
        <source></source>
        <translation>Sentrel is free software, written and maintained by the people who contribute to its code.</translation>
    </message>
    <message id="about_project_title">
        <source></source>
        <translation>The project</translation>
    </message>
    <message id="about_project_body">
        <source></source>
        <translation>Keeping eyes off your shoulder, without a physical filter or extra hardware.</translation>
    </message>
    <message id="about_privacy_title">
        <source></source>
        <translation>Your privacy</translation>
    </message>
    <message id="about_privacy_body">
        <source></source>
        <translation>The camera image is analysed on this computer, then forgotten. Nothing is recorded or sent over the Internet.</translation>
    </message>
    <message id="shortcut_unavailable_hint">
        <source></source>
        <translation>This desktop offers no global shortcuts: bind a key to the command given in the manual.</translation>
    </message>
    <message id="tray_open">
        <source></source>
        <translation>Open Sentrel</translation>
    </message>
    <message id="tray_enable">
        <source></source>
        <translation>Turn protection on</translation>
    </message>
    <message id="tray_disable">
        <source></source>
        <translation>Turn protection off</translation>
    </message>
    <message id="error_no_camera">
        <source></source>
        <translation>Camera not found</translation>
    </message>
    <message id="error_camera_denied">
        <source></source>
        <translation>Camera access refused</translation>
    </message>
    <message id="error_camera_busy">
        <source></source>
        <translation>Camera in use</translation>
    </message>
    <message id="error_model_missing">
        <source></source>
        <translation>Detection model missing</translation>
    </message>
    <message id="error_no_pipewire">
        <source></source>
        <translation>PipeWire is not running: install pipewire and wireplumber.</translation>
    </message>
    <message id="advice_no_camera">
        <source></source>
        <translation>plug one in; &quot;wpctl status&quot; lists those that PipeWire knows</translation>
    </message>
    <message id="advice_camera_denied">
        <source></source>
        <translation>add your account to the group &quot;video&quot; and log in again</translation>
    </message>
    <message id="advice_camera_busy">
        <source></source>
        <translation>close the program that uses it; Sentrel takes it up again by itself</translation>
    </message>
    <message id="advice_model_missing">
        <source></source>
        <translation>reinstall Sentrel or run scripts/fetch-models</translation>
    </message>
    <message id="advice_no_pipewire">
        <source></source>
        <translation>then log in again</translation>
    </message>
    <message id="error_analysis_failed">
        <source></source>
        <translation>Face detection fails</translation>
    </message>
    <message id="advice_analysis_failed">
        <source></source>
        <translation>Sentrel tries again by itself; restart it if this lasts</translation>
    </message>
    <message id="notif_camera_text">
        <source></source>
        <translation>Your screen is not protected for now. Sentrel keeps trying and will protect it as soon as the camera answers.</translation>
    </message>
    <message id="error_no_overlay">
        <source></source>
        <translation>This desktop does not allow covering the screen. Alerts stay on.</translation>
    </message>
    <message id="error_no_compositing">
        <source></source>
        <translation>Without a compositing manager only alerts are shown.</translation>
    </message>
    <message id="error_settings_damaged">
        <source></source>
        <translation>Settings were damaged: readable values were kept, the old file was set aside.</translation>
    </message>
    <message id="error_login_item">
        <source></source>
        <translation>Start at login could not be changed.</translation>
    </message>
    <message id="error_settings_unreadable">
        <source></source>
        <translation>Settings cannot be read: Sentrel uses standard values and leaves the file as it is.</translation>
    </message>
    <message id="notif_off_title">
        <source></source>
        <translation>Protection is off</translation>
    </message>
    <message id="notif_off_text">
        <source></source>
        <translation>A shortcut of the desktop, a script or another program asked for it.</translation>
    </message>
    <message id="link_copy">
        <source></source>
        <translation>Copy the address</translation>
    </message>
    <message id="onboarding_camera_again">
        <source></source>
        <translation>The camera is not allowed yet.</translation>
    </message>
    <message id="command_usage">
        <source></source>
        <translation>Usage: sentrel [COMMAND]</translation>
    </message>
    <message id="command_none">
        <source></source>
        <translation>Without a command, sentrel protects the screen; where it does so already, its window opens.</translation>
    </message>
    <message id="command_help">
        <source></source>
        <translation>print this help and exit</translation>
    </message>
    <message id="command_version">
        <source></source>
        <translation>print the version and exit</translation>
    </message>
    <message id="command_service">
        <source></source>
        <translation>wait for what the session bus asks, which starts the program so</translation>
    </message>
    <message id="command_manual">
        <source></source>
        <translation>“man sentrel” explains the settings and what scripts can ask for.</translation>
    </message>
    <message id="command_unknown">
        <source></source>
        <translation>unknown argument “%1”; “sentrel --help” tells which there are.</translation>
    </message>
    <message id="notif_pause_title">
        <source></source>
        <translation>Protection paused</translation>
    </message>
    <message id="notif_guest_title">
        <source></source>
        <translation>Guests may look on</translation>
    </message>
    <message id="command_status">
        <source></source>
        <translation>tell what protection does; --json for scripts, --watch to follow</translation>
    </message>
    <message id="command_on">
        <source></source>
        <translation>turn protection on</translation>
    </message>
    <message id="command_off">
        <source></source>
        <translation>turn protection off</translation>
    </message>
    <message id="command_toggle">
        <source></source>
        <translation>turn protection on or off</translation>
    </message>
    <message id="command_pause">
        <source></source>
        <translation>pause, for 24 hours at most; tomorrow is 8 in the morning</translation>
    </message>
    <message id="command_resume">
        <source></source>
        <translation>end the pause</translation>
    </message>
    <message id="command_guest">
        <source></source>
        <translation>let one to three guests look on, without a duration until the next lock</translation>
    </message>
    <message id="command_alone">
        <source></source>
        <translation>let nobody look on any more</translation>
    </message>
    <message id="command_cover">
        <source></source>
        <translation>cover every screen, or uncover them</translation>
    </message>
    <message id="command_preferences">
        <source></source>
        <translation>open the preferences</translation>
    </message>
    <message id="command_statistics">
        <source></source>
        <translation>open the statistics</translation>
    </message>
    <message id="command_quit">
        <source></source>
        <translation>end Sentrel</translation>
    </message>
    <message id="command_duration">
        <source></source>
        <translation>a duration is asked for: 90s, 15m, 1h, 24h at most, or tomorrow, which is 8 in the morning.</translation>
    </message>
    <message id="command_guests">
        <source></source>
        <translation>a number of guests is 1, 2 or 3.</translation>
    </message>
    <message id="command_not_running">
        <source></source>
        <translation>Sentrel is not running.</translation>
    </message>
    <message id="command_no_answer">
        <source></source>
        <translation>Sentrel does not answer.</translation>
    </message>
    <message id="command_refused_locked">
        <source></source>
        <translation>refused: the session is locked.</translation>
    </message>
    <message id="command_refused_off">
        <source></source>
        <translation>refused: protection is off.</translation>
    </message>
    <message id="command_refused_paused">
        <source></source>
        <translation>refused: protection is paused.</translation>
    </message>
    <message id="command_refused_cover">
        <source></source>
        <translation>refused: no screen can be covered.</translation>
    </message>
    <message id="command_refused_misused">
        <source></source>
        <translation>refused: a number or a duration is out of range.</translation>
    </message>
    <message id="command_refused_display">
        <source></source>
        <translation>refused: Sentrel has no display to open a window on.</translation>
    </message>
    <message id="Sentrel · Nos autres projets">
        <source></source>
        <translation>Sentrel · Our other projects</translation>
    </message>
    <message id="Étape %1 sur %2">
        <source></source>
        <translation>Step %1 of %2</translation>
    </message>
    <message id="Protection">
        <source></source>
        <translation>Protection</translation>
    </message>
    <message id="Réduire la distance">
        <source></source>
        <translation>Decrease distance</translation>
    </message>
    <message id="Augmenter la distance">
        <source></source>
        <translation>Increase distance</translation>
    </message>
    <message id="REGARD INDISCRET">
        <source></source>
        <translation>ONLOOKER</translation>
    </message>
    <message id="Quelqu'un observe votre écran">
        <source></source>
        <translation>Someone is watching your screen</translation>
    </message>
    <message id="INTRUS DÉTECTÉ">
        <source></source>
        <translation>INTRUDER DETECTED</translation>
    </message>
    <message id="Préférences Sentrel">
        <source></source>
        <translation>Sentrel Preferences</translation>
    </message>
    <message id="Bienvenue dans Sentrel">
        <source></source>
        <translation>Welcome to Sentrel</translation>
    </message>
    <message id="Caméra">
        <source></source>
        <translation>Camera</translation>
    </message>
    <message id="Sélectionnez la caméra utilisée pour la détection">
        <source></source>
        <translation>Choose the camera used for detection</translation>
    </message>
    <message id="Par défaut (frontale)">
        <source></source>
        <translation>Default (front)</translation>
    </message>
    <message id="Détection">
        <source></source>
        <translation>Detection</translation>
    </message>
    <message id="Force du filtre">
        <source></source>
        <translation>Filter strength</translation>
    </message>
    <message id="Opacité de l'overlay de confidentialité">
        <source></source>
        <translation>Opacity of the privacy overlay</translation>
    </message>
    <message id="Sensibilité">
        <source></source>
        <translation>Sensitivity</translation>
    </message>
    <message id="Réactivité aux mouvements de tête">
        <source></source>
        <translation>Reaction to head movements</translation>
    </message>
    <message id="Délai d'inattention">
        <source></source>
        <translation>Inattention delay</translation>
    </message>
    <message id="Temps avant de considérer que vous ne regardez plus">
        <source></source>
        <translation>Time before you count as looking away</translation>
    </message>
    <message id="Mode lunettes">
        <source></source>
        <translation>Glasses mode</translation>
    </message>
    <message id="Réduit les faux positifs si vous portez des lunettes">
        <source></source>
        <translation>Fewer false alerts if you wear glasses</translation>
    </message>
    <message id="Comportement">
        <source></source>
        <translation>Behaviour</translation>
    </message>
    <message id="Lancer au démarrage">
        <source></source>
        <translation>Start at login</translation>
    </message>
    <message id="Sentrel se lance automatiquement à l'ouverture de session">
        <source></source>
        <translation>Sentrel starts by itself when you log in</translation>
    </message>
    <message id="Raccourci global ⌘⇧C">
        <source></source>
        <translation>Global shortcut Super+Shift+C</translation>
    </message>
    <message id="Activer / désactiver le filtre sans ouvrir le menu">
        <source></source>
        <translation>Turn the filter on or off without opening the menu</translation>
    </message>
    <message id="Couvrir tous les écrans">
        <source></source>
        <translation>Cover all screens</translation>
    </message>
    <message id="Étend l'overlay à chaque moniteur connecté">
        <source></source>
        <translation>Extends the overlay to every connected monitor</translation>
    </message>
    <message id="Vibration lors d'une alerte">
        <source></source>
        <translation>Vibrate on alert</translation>
    </message>
    <message id="Retour haptique quand un regard indiscret est détecté">
        <source></source>
        <translation>Haptic feedback when an onlooker is detected</translation>
    </message>
    <message id="Matrice de confidentialité">
        <source></source>
        <translation>Privacy matrix</translation>
    </message>
    <message id="Activer la matrice">
        <source></source>
        <translation>Turn on the matrix</translation>
    </message>
    <message id="Affiche un motif de bandes qui rend l'écran illisible de côté">
        <source></source>
        <translation>Shows stripes that make the screen unreadable from the side</translation>
    </message>
    <message id="Coefficient de distance">
        <source></source>
        <translation>Distance factor</translation>
    </message>
    <message id="Amplifie la distance estimée pour une protection plus large">
        <source></source>
        <translation>Raises the estimated distance for wider protection</translation>
    </message>
    <message id="Opacité des bandes">
        <source></source>
        <translation>Stripe opacity</translation>
    </message>
    <message id="Plus élevée = moins lisible de côté mais plus visible de face">
        <source></source>
        <translation>Higher = harder to read from the side, more visible from the front</translation>
    </message>
    <message id="Avancé">
        <source></source>
        <translation>Advanced</translation>
    </message>
    <message id="Fréquence de capture">
        <source></source>
        <translation>Capture rate</translation>
    </message>
    <message id="Fréquence d'analyse de la caméra — réduire pour économiser la batterie">
        <source></source>
        <translation>How often the camera is analysed — lower it to save battery</translation>
    </message>
    <message id="Pause batterie">
        <source></source>
        <translation>Battery pause</translation>
    </message>
    <message id="Désactive automatiquement le filtre en dessous de ce seuil">
        <source></source>
        <translation>Turns the filter off below this level</translation>
    </message>
    <message id="Désactivé">
        <source></source>
        <translation>Off</translation>
    </message>
    <message id="Distance de calibration">
        <source></source>
        <translation>Calibration distance</translation>
    </message>
    <message id="Distance mesurée lors de la calibration">
        <source></source>
        <translation>Distance measured during calibration</translation>
    </message>
    <message id="Non calibré">
        <source></source>
        <translation>Not calibrated</translation>
    </message>
    <message id="Calibrer…">
        <source></source>
        <translation>Calibrate…</translation>
    </message>
    <message id="Non calibré — les alertes utilisent la distance par défaut (60 cm)">
        <source></source>
        <translation>Not calibrated — alerts use the default distance (60 cm)</translation>
    </message>
    <message id="Calibration de distance">
        <source></source>
        <translation>Distance calibration</translation>
    </message>
    <message id="Sentrel va mesurer votre distance habituelle à l'écran pour adapter ses alertes.">
        <source></source>
        <translation>Sentrel will measure your usual distance from the screen to adapt its alerts.</translation>
    </message>
    <message id="Installez-vous à votre distance de travail habituelle, regardez droit vers la caméra et appuyez sur Démarrer.">
        <source></source>
        <translation>Sit at your usual working distance, look straight at the camera and press Start.</translation>
    </message>
    <message id="Démarrer">
        <source></source>
        <translation>Start</translation>
    </message>
    <message id="Annuler">
        <source></source>
        <translation>Cancel</translation>
    </message>
    <message id="Recommencer">
        <source></source>
        <translation>Start over</translation>
    </message>
    <message id="Valider">
        <source></source>
        <translation>Accept</translation>
    </message>
    <message id="Réessayer">
        <source></source>
        <translation>Try again</translation>
    </message>
    <message id="Fermer">
        <source></source>
        <translation>Close</translation>
    </message>
    <message id="Passer">
        <source></source>
        <translation>Skip</translation>
    </message>
    <message id="Restez immobile…">
        <source></source>
        <translation>Keep still…</translation>
    </message>
    <message id="Mesure en cours…">
        <source></source>
        <translation>Measuring…</translation>
    </message>
    <message id="3 secondes">
        <source></source>
        <translation>3 seconds</translation>
    </message>
    <message id="Distance estimée : %lld cm">
        <source></source>
        <translation>Estimated distance: %lld cm</translation>
    </message>
    <message id="Vous pouvez ajuster cette valeur si elle vous semble incorrecte.">
        <source></source>
        <translation>You can adjust this value if it looks wrong.</translation>
    </message>
    <message id="Calibration échouée">
        <source></source>
        <translation>Calibration failed</translation>
    </message>
    <message id="La caméra reste fermée tant que la session est verrouillée, en veille ou en pause.">
        <source></source>
        <translation>The camera stays closed while the session is locked, asleep or paused.</translation>
    </message>
    <message id="Aucun visage détecté. Assurez-vous d'être bien en face de la caméra.">
        <source></source>
        <translation>No face found. Make sure you are facing the camera.</translation>
    </message>
    <message id="Compris">
        <source></source>
        <translation>Got it</translation>
    </message>
    <message id="✓ Autorisé">
        <source></source>
        <translation>✓ Allowed</translation>
    </message>
    <message id="Calibrer maintenant">
        <source></source>
        <translation>Calibrate now</translation>
    </message>
    <message id="✓ Calibré (%1 cm)">
        <source></source>
        <translation>✓ Calibrated (%1 cm)</translation>
    </message>
    <message id="Activer">
        <source></source>
        <translation>Turn on</translation>
    </message>
    <message id="✓ Activé">
        <source></source>
        <translation>✓ On</translation>
    </message>
    <message id="Pour des alertes précises, calibrez Sentrel à votre distance de travail habituelle. Cette étape prend 5 secondes.">
        <source></source>
        <translation>For accurate alerts, calibrate Sentrel at your usual working distance. This step takes 5 seconds.</translation>
    </message>
    <message id="Sentrel peut se lancer automatiquement à l'ouverture de session pour vous protéger dès le début.">
        <source></source>
        <translation>Sentrel can start by itself at login, to protect you from the start.</translation>
    </message>
    <message id="Sur macOS, le filtre Sentrel peut couvrir toutes les applications simultanément, y compris les apps en plein écran — une capacité unique que iOS ne permet pas.">
        <source></source>
        <translation>The Sentrel filter covers all applications at once, full-screen ones included.</translation>
    </message>
    <message id="⌘⇧C">
        <source></source>
        <translation>Super+Shift+C</translation>
    </message>
    <message id="notif_shared_paused">
        <source></source>
        <translation>Protection is paused for as long as the screen is shared.</translation>
    </message>
    <message id="notif_shared_hidden">
        <source></source>
        <translation>Stripes are hidden, and an alert only notifies, because everybody in the call would see them.</translation>
    </message>
    <message id="notif_shared_title">
        <source></source>
        <translation>Screen shared</translation>
    </message>
    <message id="Ce n'est personne">
        <source></source>
        <translation>That is nobody</translation>
    </message>
    <message id="Pause 15 min">
        <source></source>
        <translation>Pause 15 min</translation>
    </message>
    <message id="Reprend à %1, ou au déverrouillage">
        <source></source>
        <translation>Resumes at %1, or at unlock</translation>
    </message>
    <message id="Écran partagé : bandes masquées">
        <source></source>
        <translation>Screen shared: stripes hidden</translation>
    </message>
    <message id="Écran partagé : en pause">
        <source></source>
        <translation>Screen shared: paused</translation>
    </message>
    <message id="1 invité">
        <source></source>
        <translation>1 guest</translation>
    </message>
    <message id="%1 invités">
        <source></source>
        <translation>%1 guests</translation>
    </message>
    <message id="Oublier">
        <source></source>
        <translation>Forget</translation>
    </message>
    <message id="1 visage ignoré">
        <source></source>
        <translation>1 face ignored</translation>
    </message>
    <message id="%1 visages ignorés">
        <source></source>
        <translation>%1 faces ignored</translation>
    </message>
    <message id="par une commande">
        <source></source>
        <translation>by a command</translation>
    </message>
    <message id="par la notification">
        <source></source>
        <translation>by the notification</translation>
    </message>
    <message id="Replié">
        <source></source>
        <translation>Folded</translation>
    </message>
    <message id="Déplié">
        <source></source>
        <translation>Unfolded</translation>
    </message>
    <message id="%1 min">
        <source></source>
        <translation>%1 min</translation>
    </message>
    <message id="%1 h %2">
        <source></source>
        <translation>%1 h %2</translation>
    </message>
    <message id="Reprendre">
        <source></source>
        <translation>Resume</translation>
    </message>
    <message id="Je suis seul">
        <source></source>
        <translation>I am alone</translation>
    </message>
    <message id="Mettre en pause">
        <source></source>
        <translation>Pause</translation>
    </message>
    <message id="15 minutes">
        <source></source>
        <translation>15 minutes</translation>
    </message>
    <message id="1 heure">
        <source></source>
        <translation>1 hour</translation>
    </message>
    <message id="Jusqu'à demain 8 h">
        <source></source>
        <translation>Until 8 am tomorrow</translation>
    </message>
    <message id="Je ne suis pas seul">
        <source></source>
        <translation>I am not alone</translation>
    </message>
    <message id="30 minutes">
        <source></source>
        <translation>30 minutes</translation>
    </message>
    <message id="Jusqu'au verrouillage">
        <source></source>
        <translation>Until locked</translation>
    </message>
    <message id="Il alerte encore, et sera ignoré s'il reste immobile 10 s d'ici 30 s">
        <source></source>
        <translation>It still alerts, and will be ignored if it stays still for 10 s within 30 s</translation>
    </message>
    <message id="Trois visages sont déjà ignorés">
        <source></source>
        <translation>Three faces are ignored already</translation>
    </message>
    <message id="Trop loin pour savoir s'il est immobile">
        <source></source>
        <translation>Too far away to tell whether it is still</translation>
    </message>
    <message id="Réactions">
        <source></source>
        <translation>Reactions</translation>
    </message>
    <message id="Exceptions">
        <source></source>
        <translation>Exceptions</translation>
    </message>
    <message id="Quand quelqu'un regarde">
        <source></source>
        <translation>When somebody looks</translation>
    </message>
    <message id="Ce qui se passe lors d'une alerte">
        <source></source>
        <translation>What happens in an alert</translation>
    </message>
    <message id="Assombrir et prévenir">
        <source></source>
        <translation>Darken and notify</translation>
    </message>
    <message id="Prévenir seulement">
        <source></source>
        <translation>Notify only</translation>
    </message>
    <message id="Assombrir seulement">
        <source></source>
        <translation>Darken only</translation>
    </message>
    <message id="Pendant un partage d'écran">
        <source></source>
        <translation>While the screen is shared</translation>
    </message>
    <message id="Les programmes X11 qui capturent l'écran eux-mêmes ne peuvent pas être remarqués">
        <source></source>
        <translation>X11 programs that grab the screen themselves cannot be noticed</translation>
    </message>
    <message id="Masquer les bandes">
        <source></source>
        <translation>Hide the stripes</translation>
    </message>
    <message id="Ne rien changer">
        <source></source>
        <translation>Change nothing</translation>
    </message>
    <message id="Surveiller jusqu'à">
        <source></source>
        <translation>Watch up to</translation>
    </message>
    <message id="Un visage plus éloigné n'alerte pas">
        <source></source>
        <translation>A face farther away gives no alert</translation>
    </message>
    <message id="Sans limite">
        <source></source>
        <translation>No limit</translation>
    </message>
    <message id="3,5 m">
        <source></source>
        <translation>3.5 m</translation>
    </message>
    <message id="2,5 m">
        <source></source>
        <translation>2.5 m</translation>
    </message>
    <message id="1,5 m">
        <source></source>
        <translation>1.5 m</translation>
    </message>
    <message id="Aucun visage ignoré">
        <source></source>
        <translation>No face is ignored</translation>
    </message>
    <message id="Alerter après">
        <source></source>
        <translation>Alert after</translation>
    </message>
    <message id="Temps pendant lequel quelqu'un doit être là">
        <source></source>
        <translation>How long somebody must be there</translation>
    </message>
    <message id="Seulement si l'on regarde l'écran">
        <source></source>
        <translation>Only when looking at the screen</translation>
    </message>
    <message id="Un visage tourné de 45° ou plus n'alerte pas">
        <source></source>
        <translation>A face turned away by 45° or more gives no alert</translation>
    </message>
    <message id="depuis %1">
        <source></source>
        <translation>for %1</translation>
    </message>
    <message id="cover_title">
        <source></source>
        <translation>Screen covered</translation>
    </message>
    <message id="Découvrir">
        <source></source>
        <translation>Uncover</translation>
    </message>
    <message id="Appuyez de nouveau pour découvrir">
        <source></source>
        <translation>Press again to uncover</translation>
    </message>
    <message id="shortcut_cover_description">
        <source></source>
        <translation>Cover or uncover every screen</translation>
    </message>
    <message id="Raccourci global ⌘⇧V">
        <source></source>
        <translation>Global shortcut Super+Shift+V</translation>
    </message>
    <message id="shortcut_cover_hint">
        <source></source>
        <translation>Cover or uncover every screen at once</translation>
    </message>
    <message id="Masquer les autres notifications pendant une alerte">
        <source></source>
        <translation>Hide other notifications during an alert</translation>
    </message>
    <message id="Leur contenu n'apparaît pas tant que quelqu'un regarde">
        <source></source>
        <translation>Their content does not appear while somebody looks on</translation>
    </message>
    <message id="Ce bureau ne permet pas de masquer celles des autres programmes">
        <source></source>
        <translation>This desktop cannot hide those of other programs</translation>
    </message>
    <message id="Bandes : %1, 1 écran couvert">
        <source></source>
        <translation>Stripes: %1, 1 screen covered</translation>
    </message>
    <message id="Bandes : %1, %2 écrans couverts">
        <source></source>
        <translation>Stripes: %1, %2 screens covered</translation>
    </message>
    <message id="Ce bureau ne permet pas de couvrir l'écran">
        <source></source>
        <translation>This desktop does not let the screen be covered</translation>
    </message>
    <message id="attribué par le bureau : %1">
        <source></source>
        <translation>given by the desktop: %1</translation>
    </message>
    <message id="refusé">
        <source></source>
        <translation>refused</translation>
    </message>
    <message id="sans réponse du bureau">
        <source></source>
        <translation>no answer from the desktop</translation>
    </message>
    <message id="aucune barre">
        <source></source>
        <translation>no panel takes it</translation>
    </message>
    <message id="Ce bureau">
        <source></source>
        <translation>This desktop</translation>
    </message>
    <message id="Raccourci : %1">
        <source></source>
        <translation>Shortcut: %1</translation>
    </message>
    <message id="Icône : %1">
        <source></source>
        <translation>Icon: %1</translation>
    </message>
    <message id="command_doctor">
        <source></source>
        <translation>tell what is missing, and what to do</translation>
    </message>
    <message id="doctor_no_answer">
        <source></source>
        <translation>no answer</translation>
    </message>
    <message id="doctor_version">
        <source></source>
        <translation>Versions</translation>
    </message>
    <message id="doctor_system">
        <source></source>
        <translation>System</translation>
    </message>
    <message id="doctor_processor">
        <source></source>
        <translation>Processor</translation>
    </message>
    <message id="doctor_engine">
        <source></source>
        <translation>Detection engine</translation>
    </message>
    <message id="doctor_system_advice">
        <source></source>
        <translation>A disk does not answer: look at the system&apos;s journal</translation>
    </message>
    <message id="doctor_running">
        <source></source>
        <translation>running for %1</translation>
    </message>
    <message id="doctor_protection">
        <source></source>
        <translation>Protection</translation>
    </message>
    <message id="doctor_not_running">
        <source></source>
        <translation>not running</translation>
    </message>
    <message id="doctor_silent_advice">
        <source></source>
        <translation>Quit Sentrel or log out, then start it again</translation>
    </message>
    <message id="doctor_desktop">
        <source></source>
        <translation>Desktop</translation>
    </message>
    <message id="doctor_session">
        <source></source>
        <translation>Desktop and session</translation>
    </message>
    <message id="doctor_display">
        <source></source>
        <translation>Display</translation>
    </message>
    <message id="doctor_none">
        <source></source>
        <translation>none found</translation>
    </message>
    <message id="doctor_display_advice">
        <source></source>
        <translation>Start Sentrel from the graphical session; for a service: systemctl --user import-environment DISPLAY WAYLAND_DISPLAY</translation>
    </message>
    <message id="doctor_bus">
        <source></source>
        <translation>Session bus</translation>
    </message>
    <message id="doctor_bus_advice">
        <source></source>
        <translation>Install dbus-user-session, then log in again</translation>
    </message>
    <message id="doctor_portal">
        <source></source>
        <translation>Portal interfaces</translation>
    </message>
    <message id="doctor_portal_advice">
        <source></source>
        <translation>Install xdg-desktop-portal and that of your desktop: the shortcut and the contrast depend on it</translation>
    </message>
    <message id="doctor_notifications">
        <source></source>
        <translation>Notifications</translation>
    </message>
    <message id="doctor_yes">
        <source></source>
        <translation>yes</translation>
    </message>
    <message id="doctor_notifications_advice">
        <source></source>
        <translation>Start a notification server, or an alert is seen on the screen alone</translation>
    </message>
    <message id="doctor_tray">
        <source></source>
        <translation>Panel that takes the icon</translation>
    </message>
    <message id="doctor_tray_advice">
        <source></source>
        <translation>Add a tray to your panel (an extension on GNOME), or start Sentrel again to open its window</translation>
    </message>
    <message id="doctor_shortcut">
        <source></source>
        <translation>Shortcut</translation>
    </message>
    <message id="doctor_shortcut_advice">
        <source></source>
        <translation>Bind a key to the command “sentrel toggle” in the keyboard settings</translation>
    </message>
    <message id="doctor_cover_through_x11">
        <source></source>
        <translation>(the compositor has no layer shell)</translation>
    </message>
    <message id="doctor_screens">
        <source></source>
        <translation>Screens</translation>
    </message>
    <message id="doctor_cover">
        <source></source>
        <translation>Cover</translation>
    </message>
    <message id="doctor_compositing_advice">
        <source></source>
        <translation>Turn on the window manager&apos;s compositing, or start picom</translation>
    </message>
    <message id="doctor_cover_advice">
        <source></source>
        <translation>Log in to an X11 session, or to a Wayland desktop that offers zwlr_layer_shell_v1; notifications stay</translation>
    </message>
    <message id="doctor_protocols">
        <source></source>
        <translation>Wayland protocols</translation>
    </message>
    <message id="doctor_cameras">
        <source></source>
        <translation>Cameras</translation>
    </message>
    <message id="doctor_pipewire_advice">
        <source></source>
        <translation>systemctl --user start pipewire wireplumber; install them if they are missing</translation>
    </message>
    <message id="doctor_camera_used">
        <source></source>
        <translation>In use</translation>
    </message>
    <message id="doctor_access">
        <source></source>
        <translation>Access to cameras</translation>
    </message>
    <message id="doctor_witnesses">
        <source></source>
        <translation>Lock, sleep and power</translation>
    </message>
    <message id="doctor_lock">
        <source></source>
        <translation>Witnesses of the lock</translation>
    </message>
    <message id="doctor_lock_advice">
        <source></source>
        <translation>Without them the camera stays open behind a locked screen: use a locker that tells logind</translation>
    </message>
    <message id="doctor_sleep">
        <source></source>
        <translation>Witnesses of sleep</translation>
    </message>
    <message id="doctor_sleep_advice">
        <source></source>
        <translation>Without systemd-logind, or elogind, the camera may stay open when the machine goes to sleep</translation>
    </message>
    <message id="doctor_power">
        <source></source>
        <translation>Witnesses of power</translation>
    </message>
    <message id="doctor_mains">
        <source></source>
        <translation>mains, without a battery</translation>
    </message>
    <message id="doctor_power_advice">
        <source></source>
        <translation>Install upower: without it a low battery does not pause</translation>
    </message>
    <message id="doctor_battery">
        <source></source>
        <translation>Battery</translation>
    </message>
    <message id="doctor_files">
        <source></source>
        <translation>Files</translation>
    </message>
    <message id="doctor_settings">
        <source></source>
        <translation>Settings</translation>
    </message>
    <message id="doctor_healthy">
        <source></source>
        <translation>healthy</translation>
    </message>
    <message id="doctor_settings_none">
        <source></source>
        <translation>no file yet</translation>
    </message>
    <message id="doctor_settings_damaged">
        <source></source>
        <translation>damaged</translation>
    </message>
    <message id="doctor_settings_unreadable">
        <source></source>
        <translation>unreadable</translation>
    </message>
    <message id="doctor_settings_damaged_advice">
        <source></source>
        <translation>The next start takes over what is readable, and keeps the old file beside it</translation>
    </message>
    <message id="doctor_settings_unreadable_advice">
        <source></source>
        <translation>Make yourself the owner of ~/.config/sentrel; the file stays as it is</translation>
    </message>
    <message id="doctor_models">
        <source></source>
        <translation>Detection models</translation>
    </message>
    <message id="doctor_events">
        <source></source>
        <translation>Latest events</translation>
    </message>
    <message id="report_title">
        <source></source>
        <translation>Diagnosis</translation>
    </message>
    <message id="report_no_problem">
        <source></source>
        <translation>No problem found</translation>
    </message>
    <message id="report_one_problem">
        <source></source>
        <translation>1 problem found</translation>
    </message>
    <message id="report_problems">
        <source></source>
        <translation>%1 problems found</translation>
    </message>
    <message id="report_asking">
        <source></source>
        <translation>The answers are coming…</translation>
    </message>
    <message id="Caméra couverte ou volet fermé">
        <source></source>
        <translation>Camera covered, or its shutter closed</translation>
    </message>
    <message id="Trop sombre pour bien voir">
        <source></source>
        <translation>Too dark to see well</translation>
    </message>
    <message id="Image figée">
        <source></source>
        <translation>Frozen picture</translation>
    </message>
    <message id="Vous n'êtes pas dans le champ">
        <source></source>
        <translation>You are out of the camera&apos;s view</translation>
    </message>
    <message id="Contre-jour">
        <source></source>
        <translation>Light from behind you</translation>
    </message>
    <message id="Caméra utilisée par %1">
        <source></source>
        <translation>Camera in use by %1</translation>
    </message>
    <message id="un autre programme">
        <source></source>
        <translation>another program</translation>
    </message>
    <message id="Aucune image depuis %1">
        <source></source>
        <translation>No picture for %1</translation>
    </message>
    <message id="Montrer ce que Sentrel voit">
        <source></source>
        <translation>Show what Sentrel sees</translation>
    </message>
    <message id="Les visages et les délais, tant que la protection est active">
        <source></source>
        <translation>Faces and delays, while protection is on</translation>
    </message>
    <message id="invité">
        <source></source>
        <translation>guest</translation>
    </message>
    <message id="trop loin">
        <source></source>
        <translation>too far</translation>
    </message>
    <message id="de profil">
        <source></source>
        <translation>turned away</translation>
    </message>
    <message id="affiche">
        <source></source>
        <translation>poster</translation>
    </message>
    <message id="vous">
        <source></source>
        <translation>you</translation>
    </message>
    <message id="quelqu'un">
        <source></source>
        <translation>somebody</translation>
    </message>
    <message id="%1,%2 s">
        <source></source>
        <translation>%1.%2 s</translation>
    </message>
    <message id="regarde ailleurs depuis %1 sur %2">
        <source></source>
        <translation>looking away for %1 of %2</translation>
    </message>
    <message id="quelqu'un est là depuis %1 sur %2">
        <source></source>
        <translation>somebody there for %1 of %2</translation>
    </message>
    <message id="plus personne depuis %1 sur %2">
        <source></source>
        <translation>nobody there for %1 of %2</translation>
    </message>
    <message id="alerte maintenue depuis %1 sur %2">
        <source></source>
        <translation>alert held for %1 of %2</translation>
    </message>
    <message id="journal_newer">
        <source></source>
        <translation>Journal of a newer version: it is neither read nor added to.</translation>
    </message>
    <message id="journal_damaged">
        <source></source>
        <translation>Damaged journal: the lines that could be read were kept.</translation>
    </message>
    <message id="journal_unwritable">
        <source></source>
        <translation>The journal cannot be written: check the room and the rights of its folder.</translation>
    </message>
    <message id="journal_end_gone">
        <source></source>
        <translation>nobody any more</translation>
    </message>
    <message id="journal_end_nobody">
        <source></source>
        <translation>it was nobody</translation>
    </message>
    <message id="journal_end_welcomed">
        <source></source>
        <translation>a guest</translation>
    </message>
    <message id="journal_end_paused">
        <source></source>
        <translation>paused</translation>
    </message>
    <message id="journal_end_away">
        <source></source>
        <translation>away or locked</translation>
    </message>
    <message id="journal_end_low_battery">
        <source></source>
        <translation>low battery</translation>
    </message>
    <message id="journal_end_blind">
        <source></source>
        <translation>camera lost</translation>
    </message>
    <message id="journal_end_off">
        <source></source>
        <translation>protection off</translation>
    </message>
    <message id="assombri">
        <source></source>
        <translation>darkened</translation>
    </message>
    <message id="notifié">
        <source></source>
        <translation>notified</translation>
    </message>
    <message id="1 visage">
        <source></source>
        <translation>1 face</translation>
    </message>
    <message id="%1 visages">
        <source></source>
        <translation>%1 faces</translation>
    </message>
    <message id="command_since">
        <source></source>
        <translation>a span of time is asked for: 90m, 12h, 7d or 4w.</translation>
    </message>
    <message id="command_journal_unreadable">
        <source></source>
        <translation>the journal cannot be read.</translation>
    </message>
    <message id="Aucune alerte">
        <source></source>
        <translation>No alert</translation>
    </message>
    <message id="command_journal">
        <source></source>
        <translation>list the alerts that are kept</translation>
    </message>
    <message id="1 alerte">
        <source></source>
        <translation>1 alert</translation>
    </message>
    <message id="%1 alertes">
        <source></source>
        <translation>%1 alerts</translation>
    </message>
    <message id="Arrêter le journal des alertes et effacer ce qu'il contient ?">
        <source></source>
        <translation>Stop the journal of alerts and erase what it holds?</translation>
    </message>
    <message id="Arrêter et effacer">
        <source></source>
        <translation>Stop and erase</translation>
    </message>
    <message id="Tenir un journal">
        <source></source>
        <translation>Keep a journal</translation>
    </message>
    <message id="Non merci">
        <source></source>
        <translation>No thanks</translation>
    </message>
    <message id="Journal des alertes">
        <source></source>
        <translation>Journal of alerts</translation>
    </message>
    <message id="journal_offer">
        <source></source>
        <translation>A line for each alert, kept for 90 days on this computer: date, length, number of faces, camera. Never a picture, nor the name of a window.</translation>
    </message>
    <message id="14 derniers jours">
        <source></source>
        <translation>Last 14 days</translation>
    </message>
    <message id="Heures de la journée">
        <source></source>
        <translation>Hours of the day</translation>
    </message>
    <message id="Exporter…">
        <source></source>
        <translation>Export…</translation>
    </message>
    <message id="Effacer">
        <source></source>
        <translation>Erase</translation>
    </message>
    <message id="aujourd'hui">
        <source></source>
        <translation>today</translation>
    </message>
    <message id="%1 h">
        <source></source>
        <translation>%1:00</translation>
    </message>
    <message id="de %1 h à %2 h">
        <source></source>
        <translation>%1:00 to %2:00</translation>
    </message>
    <message id="Effacer le journal des alertes ? Cette action est définitive.">
        <source></source>
        <translation>Erase the journal of alerts? This cannot be undone.</translation>
    </message>
    <message id="Exporter le journal des alertes">
        <source></source>
        <translation>Export the journal of alerts</translation>
    </message>
    <message id="Exporter">
        <source></source>
        <translation>Export</translation>
    </message>
    <message id="Dossier :">
        <source></source>
        <translation>Folder:</translation>
    </message>
    <message id="Nom du fichier :">
        <source></source>
        <translation>File name:</translation>
    </message>
    <message id="Type :">
        <source></source>
        <translation>Type:</translation>
    </message>
    <message id="alertes-sentrel.csv">
        <source></source>
        <translation>sentrel-alerts.csv</translation>
    </message>
    <message id="Exporté : %1">
        <source></source>
        <translation>Exported: %1</translation>
    </message>
    <message id="%1 n'a pas pu être écrit.">
        <source></source>
        <translation>%1 could not be written.</translation>
    </message>
    <message id="Le journal des alertes est effacé aussi.">
        <source></source>
        <translation>The journal of alerts is erased, too.</translation>
    </message>
    <message id="journal_hint">
        <source></source>
        <translation>A line for each alert, 90 days, on this computer; never a picture</translation>
    </message>
    <message id="Vérifier par vous-même…">
        <source></source>
        <translation>See for yourself…</translation>
    </message>
    <message id="Le noyau filtre les appels de ce programme">
        <source></source>
        <translation>The kernel filters this program&apos;s calls</translation>
    </message>
    <message id="Ce noyau ne filtre pas les appels de ce programme">
        <source></source>
        <translation>This kernel does not filter this program&apos;s calls</translation>
    </message>
    <message id="Une connexion au réseau est refusée">
        <source></source>
        <translation>A network connection is refused</translation>
    </message>
    <message id="Une connexion au réseau n'est pas refusée">
        <source></source>
        <translation>A network connection is not refused</translation>
    </message>
    <message id="Lancer un autre programme est refusé">
        <source></source>
        <translation>Starting another program is refused</translation>
    </message>
    <message id="Lancer un autre programme n'est pas refusé">
        <source></source>
        <translation>Starting another program is not refused</translation>
    </message>
    <message id="Un plantage n'écrit rien de la mémoire">
        <source></source>
        <translation>A crash writes nothing of the memory</translation>
    </message>
    <message id="Un plantage pourrait écrire la mémoire">
        <source></source>
        <translation>A crash could write the memory</translation>
    </message>
    <message id="Un fichier inattendu est ouvert en écriture">
        <source></source>
        <translation>An unexpected file is open for writing</translation>
    </message>
    <message id="Aucun fichier n'est ouvert en écriture">
        <source></source>
        <translation>No file is open for writing</translation>
    </message>
    <message id="Ouverts en écriture : ses messages ou ses fichiers">
        <source></source>
        <translation>Open for writing: its messages or its own files</translation>
    </message>
    <message id="La caméra est fermée">
        <source></source>
        <translation>The camera is closed</translation>
    </message>
    <message id="La caméra est ouverte depuis">
        <source></source>
        <translation>The camera has been open since</translation>
    </message>
    <message id="Images de la caméra en mémoire">
        <source></source>
        <translation>Camera pictures in memory</translation>
    </message>
    <message id="Images de la caméra restées en mémoire">
        <source></source>
        <translation>Camera pictures left in memory</translation>
    </message>
    <message id="Comptées là où elles sont réservées et rendues">
        <source></source>
        <translation>Counted where they are taken and given back</translation>
    </message>
    <message id="Gardé, pour vous seul : %1">
        <source></source>
        <translation>Kept, for you alone: %1</translation>
    </message>
    <message id="Gardé, et lisible par d'autres : %1">
        <source></source>
        <translation>Kept, and others can read it: %1</translation>
    </message>
    <message id="n'affiche rien : aucun réseau">
        <source></source>
        <translation>prints nothing: no network</translation>
    </message>
    <message id="montre tout ce qui est ouvert">
        <source></source>
        <translation>shows all that is open</translation>
    </message>
    <message id="affiche 2 : un filtre">
        <source></source>
        <translation>prints 2: a filter</translation>
    </message>
    <message id="Depuis un terminal :">
        <source></source>
        <translation>From a terminal:</translation>
    </message>
    <message id="Vérifié">
        <source></source>
        <translation>Verified</translation>
    </message>
    <message id="Échec">
        <source></source>
        <translation>Failed</translation>
    </message>
    <message id="privacy_intro">
        <source></source>
        <translation>Sentrel has just tried what it says it cannot do, and read again what it keeps.</translation>
    </message>
    <message id="Vérifier par vous-même">
        <source></source>
        <translation>See for yourself</translation>
    </message>
    <message id="Copier">
        <source></source>
        <translation>Copy</translation>
    </message>
    <message id="Copié">
        <source></source>
        <translation>Copied</translation>
    </message>
    <message id="doctor_program">
        <source></source>
        <translation>Program</translation>
    </message>
    <message id="report_line">
        <source></source>
        <translation>%1: %2</translation>
    </message>
    <message id="doctor_dark">
        <source></source>
        <translation>Witnesses of dark displays</translation>
    </message>
    <message id="command_privacy">
        <source></source>
        <translation>have the program try what it says it cannot do</translation>
    </message>
    <message id="settings_kept">
        <source></source>
        <translation>The damaged settings file is kept</translation>
    </message>
    <message id="settings_open">
        <source></source>
        <translation>The settings cannot be closed to others</translation>
    </message>
    <message id="settings_unsaved">
        <source></source>
        <translation>The settings cannot be saved</translation>
    </message>
    <message id="settings_late">
        <source></source>
        <translation>The settings were not saved in time</translation>
    </message>
    <message id="home_missing">
        <source></source>
        <translation>there is no home folder</translation>
    </message>
    <message id="journal_unexported">
        <source></source>
        <translation>The journal cannot be exported</translation>
    </message>
    <message id="lock_unconfirmed">
        <source></source>
        <translation>The screen was asked to lock, but nothing confirmed it within 60 s: protection goes on</translation>
    </message>
    <message id="consent_nobody_to_ask">
        <source></source>
        <translation>The camera is not allowed yet, and without a display nobody can be asked</translation>
    </message>
    <message id="running_opened">
        <source></source>
        <translation>Sentrel is running already: its window has just opened</translation>
    </message>
    <message id="running_already">
        <source></source>
        <translation>Sentrel is running already</translation>
    </message>
    <message id="error_no_session_bus">
        <source></source>
        <translation>There is no session bus: nothing can show or switch the protection from outside</translation>
    </message>
    <message id="error_display_lost">
        <source></source>
        <translation>The display was lost</translation>
    </message>
    <message id="error_no_call_filter">
        <source></source>
        <translation>The kernel cannot be told to refuse network sockets</translation>
    </message>
    <message id="error_core_dumps">
        <source></source>
        <translation>Memory cannot be left out of core dumps</translation>
    </message>
    <message id="error_no_consent">
        <source></source>
        <translation>Camera not allowed yet</translation>
    </message>
    <message id="advice_no_consent">
        <source></source>
        <translation>switch protection on, and Sentrel asks again</translation>
    </message>
    <message id="detail_no_frame">
        <source></source>
        <translation>no frame was analysed</translation>
    </message>
    <message id="detail_camera_gone">
        <source></source>
        <translation>the camera has gone</translation>
    </message>
    <message id="detail_no_picture">
        <source></source>
        <translation>the camera gives no picture</translation>
    </message>
    <message id="onboarding_no_camera">
        <source></source>
        <translation>No camera found. Plug one in, and Sentrel sees it at once.</translation>
    </message>
    <message id="detail_model_missing">
        <source></source>
        <translation>the file is missing</translation>
    </message>
    <message id="detail_model_unreadable">
        <source></source>
        <translation>the file cannot be read</translation>
    </message>
    <message id="detail_model_damaged">
        <source></source>
        <translation>the file is damaged</translation>
    </message>
    <message id="detail_model_memory">
        <source></source>
        <translation>there is not enough memory</translation>
    </message>
</context>
</TS>
