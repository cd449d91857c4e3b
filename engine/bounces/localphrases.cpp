#include "engine/bounces/localphrases.h"

#include <array>

namespace {

// As NormalizeReply() gives them, with a bar between them: German, French,
// Spanish, Portuguese, Italian, Dutch, the northern and eastern languages of
// Europe, Russian, Japanese, Chinese, Korean.

constexpr std::string_view ClearHard =
    "empfanger unbekannt|benutzer unbekannt|adresse unbekannt|unbekannter|unbekannte adresse|existiert nicht|"
    "nicht vorhanden|nicht gefunden|nicht bekannt|kein postfach|kein solcher|keine solche|ungultige|ungueltige|"
    "adresse ungultig|adresse ungueltig|ist ungultig|ist ungueltig|nicht mehr gultig|nicht mehr gueltig|"
    "nicht mehr aktuell|gibt es nicht|nicht verzeichnet|wurde geloscht|wurde geloescht|falsche adresse|"
    "introuvable|n'existe pas|n'existe plus|inexistant|inconnu|adresse invalide|destinataire invalide|"
    "adresse incorrecte|n'a pas ete trouve|n'est plus valide|n'est pas valide|compte supprime|n'est plus utilise|"
    "no existe|desconocid|inexistente|no se encontro|no se ha encontrado|no encontrad|no se encuentra|"
    "no es valida|no es valido|direccion no valida|direccion invalida|direccion incorrecta|destinatario invalido|"
    "cuenta eliminada|nao existe|nao foi encontrad|nao encontrad|nao localizad|desconhecid|endereco invalido|"
    "nao e valido|usuario invalido|foi excluida|non esiste|sconosciut|inesistente|non e stato trovato|"
    "impossibile trovare|non trovat|non valido|non valida|non e piu attiv|non e stata trovata|bestaat niet|"
    "onbekend|niet gevonden|kan niet worden gevonden|ongeldig adres|ongeldige|niet geldig|finns inte|finns ej|"
    "okand|hittades inte|kunde inte hittas|kan inte hittas|gick inte att hitta|findes ikke|ukendt|"
    "blev ikke fundet|ikke fundet|finnes ikke|ukjent|ble ikke funnet|ikke funnet|kan ikke findes|tuntematon|"
    "ei loydy|ei ole olemassa|nie istnieje|nieznany|nie mozna odnalezc|nie znaleziono|nie odnaleziono|"
    "nie zostal odnaleziony|brak takiego|nie ma takiego|nieprawidlowy adres|niepoprawny adres|neexistuje|neznam|"
    "nenalezen|nebyla nalezena|nebyl nalezen|nelze najit|neplatna adresa|nem letezik|ismeretlen|nem talalhato|"
    "nu exista|necunoscut|nu a fost gasit|bulunamadi|mevcut degil|bilinmeyen|gecersiz|не найден|не существует|"
    "неизвестн|несуществующ|такого пользователя нет|нет такого|нет такой|недействител|неверный адрес|"
    "пользователь удален|не удается найти|не удалось найти|не зарегистрирован|не знайдено|не існує|невідом|"
    "見つかりません|見つからない|見つかりませんでした|存在しません|存在しない|宛先不明|宛先が不明|不明なユーザ|"
    "ユーザ不明|ユーザー不明|該当するユーザ|無効なアドレス|アドレスが無効|アドレスに誤り|アドレスが間違|"
    "登録されていません|使われていません|使用されていません|不存在|找不到|无此用户|無此使用者|查无此人|查無此人|"
    "用户未知|未知用户|地址无效|無效的收件|无效的收件|未找到|无法找到|無法找到|地址错误|已注销|존재하지 않|"
    "찾을 수 없|없는 사용자|알 수 없는 사용자|알 수 없는 수신자|유효하지 않|없는 계정|없는 주소|잘못된 주소|"
    "ist unbekannt|gibt es bei|kein benutzer|kein nutzer|kein konto|keinen benutzer|keinen empfanger|"
    "keinen nutzer|kein empfanger|stillgelegt|aufgehoben|nicht registriert|nicht eingetragen|abgemeldet|"
    "nicht mehr verwendet|nicht mehr verfugbar|ist nicht gultig|n'est plus en service|n'est plus active|"
    "n'est pas connu|pas ete trouve|n'existent pas|non trouve|pas reconnu|n'est pas reconnue|resilie|"
    "n'est pas attribu|a ete supprime|a ete ferme|n'a pu etre trouve|no esta registrad|no figura|dada de baja|"
    "dado de baja|ya no existe|no reconocid|no corresponde a|ha sido cancelad|ha sido eliminad|es incorrect|"
    "no existen|nao cadastrad|nao esta cadastrad|nao registrad|nao localizamos|foi cancelad|foi encerrad|"
    "nao reconhecid|esta incorret|nao consta|ja nao existe|nao existem|e stata chiusa|e cessat|cessata|"
    "e stata cancellat|e errat|non riconosciut|non e corrett|non registrat|disdett|non risulta|non esistono|"
    "non e presente|niet bekend|opgeheven|niet meer in gebruik|verwijderd|is onjuist|beeindigd|geen gebruiker|"
    "niet herkend|bestaan niet|bestaat niet meer|existerar inte|ar stangd|avslutad|felaktig|ogiltig|upphort|"
    "borttagen|eksisterer ikke|nedlagt|ugyldig|er lukket|er slettet|ikke registreret|ikke registrert|ei loyty|"
    "ei loydetty|ei tunneta|ei ole kaytossa|virheellinen|nie zostala odnaleziona|nieznana|nieznanego|"
    "nieprawidlow|usuniet|zlikwidowan|bledny adres|brak uzytkownika|brak odbiorcy|brak skrzynki|brak konta|"
    "nieistniej|nie istnieja|neexistuj|zrusen|chybna adresa|neni znam|smazan|neznamy|nebol najden|nebola najdena|"
    "neplatn|ervenytelen|megszunt|torolve|nincs ilyen|nem ismert|nem letezo|nevalid|a fost sters|nu este valid|"
    "kapatil|yok|silinmis|hatali adres|tanimlanmamis|taninmiyor|bulunmamakta|mevcut olmayan|bulunmuyor|"
    "был удален|удалена|неправильный адрес|некорректный адрес|нет пользователя|нет адресата|не найдены|"
    "не найдена|больше не используется|не значится|не обслуживается|не існують|немає такого|не знайден|видален|"
    "няма такъв|не съществува|непознат|невалиден|не е намерен|ne postoji|nepoznat|nije pronaden|не постоји|"
    "ne obstaja|neznan|ni najden|ni mogoce najti|neegzistuoja|nerastas|nezinomas|neteisingas|neeksiste|"
    "nav atrasts|nezinams|ei eksisteeri|ei leitud|tundmatu|pole olemas|no existeix|no s'ha trobat|desconegu|"
    "δεν υπαρχει|δεν βρεθηκε|αγνωστοσ|αγνωστη|αγνωστο|μη εγκυρη|μη εγκυροσ|ακυρη|לא נמצא|לא קיים|לא קיימת|"
    "אינה קיימת|אינו קיים|לא ידוע|לא מוכר|שגויה|לא חוקית|לא תקינה|غير موجود|غير معروف|لم يتم العثور|لا يوجد|"
    "غير صالح|غير صحيح|وجود ندارد|یافت نشد|نامعتبر|ناشناخته|khong tim thay|khong ton tai|khong hop le|"
    "khong co nguoi dung|khong xac dinh|khong dung|tidak ditemukan|alamat tidak ada|tidak dikenal|tidak valid|"
    "tidak terdaftar|tidak wujud|tidak sah|tidak dijumpai|pengguna tidak ada|ไม่พบ|ไม่มีอยู่|ไม่มีผู้ใช้|"
    "ไม่มีที่อยู่|ไม่ถูกต้อง|ไม่รู้จัก|नहीं मिला|मौजूद नहीं|अमान्य|查无此|不是有效|未注册|没有此用户|沒有此|"
    "没有该用户|没有这个|沒有這個|用户名错误|被删除|已删除|已关闭|已關閉|收件人未知|没有找到|沒有找到|无效|無效|"
    "无此邮箱|無此信箱|无此帐|无此账|並不存在|地址有误|地址有誤|地址錯誤|拼写错误|見当たりません|"
    "正しくありません|解約|退会|削除され|アドレス不明|受信者不明|未登録|廃止され|存在致しません|存在いたしません|"
    "誤っている|間違っている|お間違え|계정이 없|주소가 없|사용자가 없|수신자가 없|탈퇴|삭제된|등록되지 않은|"
    "확인되지 않는|잘못된 메일|해지된|없는 메일|adresse erronee|est errone|nicht eingerichtet|cloture|"
    "no pertenece|non appartien|nao pertence|geen postvak|geen mailbox|inte registrerad|kendes ikke|"
    "nema schranku|не числится|ございません|没有注册|沒有註冊|未註冊|未开通|등록되어 있지|등록되지 않|"
    "kayitli degil|διαγραφ|нет почтового ящика|нет ящика|nincs felhasznalo|non ha una casella|ingen bruger|"
    "ingen anvandare|ingen bruker|ingen postkasse|ei kayttajaa|sa nenasl|nebola najden|nenalezl|nenasel|"
    "δεν ηταν δυνατη η ευρεση|تعذر العثور|لا يمكن العثور|לא ניתן למצוא|nem talaltuk|nu am gasit|"
    "не може бути знайден|nem tudtuk megtalalni|kunne ikke findes|kunne ikke finnes|ei voitu loytaa|"
    "nie moglismy znalezc";

constexpr std::string_view ClearSoft =
    "postfach ist voll|postfach voll|postfach des empfangers ist voll|uberfullt|ueberfuellt|ist voll|"
    "speicherplatz|zu viele nachrichten|zuviele nachrichten|zuviele mails|zu viele mails|zeituberschreitung|"
    "zeitueberschreitung|konto ist gesperrt|konto ist deaktiviert|postfach ist deaktiviert|postfach ist gesperrt|"
    "hat die maximale grosse|boite pleine|est pleine|boite aux lettres pleine|destinataire pleine|est plein|"
    "saturee|quota depasse|quota est depasse|delai d'attente|delai depasse|espace insuffisant|compte desactive|"
    "compte suspendu|compte est desactive|buzon lleno|esta lleno|lleno|llena|cuota|excedido su|tiempo de espera|"
    "espacio insuficiente|cuenta suspendida|cuenta desactivada|cuenta deshabilitada|buzon deshabilitado|"
    "esta cheia|cheia|cheio|cota excedida|lotada|tempo limite|espaco insuficiente|conta desativada|"
    "conta suspensa|piena|pieno|quota superata|spazio esaurito|tempo scaduto|casella disabilitata|"
    "account sospeso|casella disattivata|is vol|mailbox vol|postvak vol|postbus vol|quotum|opslaglimiet|pelna|"
    "pelny|przepelnion|przekroczono limit|przekroczyl limit|konto zablokowane|konto jest zablokowane|"
    "skrzynka zablokowana|inkorgen ar full|ar full|er fuld|er full|on taynna|schranka je plna|prekrocen|"
    "prekrocena|megtelt|betelt|kutusu dolu|kotasi|переполнен|квота|квоту|квоты|заполнен|ящик заблокирован|"
    "почтовый ящик отключен|приостановлен|время ожидания|тайм-аут|一杯|いっぱい|容量|満杯|クォータ|タイムアウト|"
    "保存領域|アカウントが無効|アカウントは停止|利用停止|接続できません|接続できなかった|応答がありません|已满|"
    "已滿|满了|空间不足|空間不足|配额|配額|超时|逾時|帐号被冻结|账号被冻结|已停用|被禁用|无法连接|連線逾時|"
    "连接失败|꽉 찼|꽉 찬|가득|용량|할당량|시간 초과|휴면|사용 중지|정지된|연결할 수 없|응답이 없|"
    "mailbox ist voll|quota uberschritten|speicher voll|kein platz|keinen platz|postfachgrosse|speicherlimit|"
    "nicht genugend speicher|postfachs ist voll|plus d'espace|boite est pleine|capacite maximale|est sature|"
    "quota maximal|quota atteint|buzon esta lleno|sin espacio|capacidad maxima|no tiene espacio|"
    "limite de almacenamiento|sem espaco|limite de armazenamento|capacidade maxima|esta lotad|e piena|"
    "spazio disponibile|spazio esaurit|limite di spazio|zit vol|geen ruimte|limiet bereikt|ar fullt|ar fulla|"
    "brevladan ar|inkorg ar|fyldt|overfyldt|lagerkvot|lagringskvot|taynna|kiintio|tila on loppu|przepelniona|"
    "brak miejsca|jest pelna|je plna|preplnen|kvota|tele van|tullep|este plin|este plina|depasit|cota de|dolu|"
    "doldu|dolmus|kotasi asil|kotayi as|yer yok|переповнен|заповнен|квот|недостаточно места|нет места|лимит|"
    "исчерпан|перевищен|пълна|препълнен|prepun|je pun|pretinac je pun|je poln|prekorac|pilna|perpildyt|virsyt|"
    "on tais|uletat|es plena|γεματο|ειναι πληρεσ|υπερβ|οριο|χωρητικοτητα|מלאה|מלא|חריגה|מכסת|מכסה|שטח האחסון|"
    "ممتلئ|تجاوز|الحصة|مساحة التخزين|پر است|پر شده|سهمیه|da day|bi day|het dung luong|vuot qua|qua dung luong|"
    "han muc|hop thu day|penuh|melebihi|kuota|เต็ม|เกินขนาด|เกินโควต้า|โควต้า|भर गया|爆满|爆滿|容量不足|容量已|"
    "超出容量|空间已|存储空间|已超额|容量超|空き容量|オーバー|꽉찬|꽉찼|초과하|grosse erreicht|maximale grosse|"
    "espace libre|saturada|saturado|maximale grootte|ultrapassou|ultrapassad|空きがありません|已用完|用完|γεμισ|"
    "volle postfach|volles postfach|geen plaats|ingen plats|ikke plads|ikke plass|nincs hely|nu mai are spatiu";

constexpr std::string_view ClearBlocked =
    "spamverdacht|als spam|unerwunscht|unerwuenscht|richtlinie|nicht berechtigt|keine berechtigung|"
    "nicht autorisiert|schwarzen liste|schwarze liste|blackliste|comme spam|comme indesirable|pourriel|"
    "liste noire|strategie de|non autorise|pas autorise|politique de|como spam|como correo no deseado|"
    "correo no deseado|lista negra|politica de|no autorizad|no tiene permiso|lixo eletronico|nao autorizad|"
    "sem permissao|nao tem permissao|lista de bloqueio|come spam|posta indesiderata|lista nera|criteri di|"
    "non autorizzat|non e autorizzat|non dispone dell'autorizzazione|politiche|als ongewenst|ongewenste|"
    "zwarte lijst|beleid|niet gemachtigd|geen toestemming|jako spam|czarnej lis|brak uprawnien|nie ma uprawnien|"
    "zasady|nevyzadan|istenmeyen|спам|нежелательн|черном списке|черный список|вирус|политик|не имеет прав|"
    "нет разрешения|не авторизован|迷惑メール|スパム|ブラックリスト|ウイルス|ポリシー|許可されていません|権限が|"
    "垃圾邮件|垃圾郵件|反垃圾|黑名单|黑名單|病毒|权限|權限|策略|信誉|스팸|블랙리스트|바이러스|정책|권한|"
    "sperrliste|blockliste|schadsoftware|spamfilter|spam-filter|nicht erwunscht|contiene un virus|"
    "contient un virus|enthalt einen virus|liste de blocage|roskapost|mustalla listalla|skrappost|svartlist|"
    "svarteliste|soppelpost|sortlist|sparrlist|lista neagra|kara liste|tiltolist|feketelist|crna lista|"
    "crnoj listi|чорн|cerne listin|ciernej listin|ανεπιθυμητ|πολιτικη|μαυρη λιστα|דואר זבל|ספאם|מדיניות|"
    "רשימה שחורה|مزعج|غير مرغوب|القائمة السوداء|سياسة|هرزنامه|thu rac|danh sach den|chinh sach|daftar hitam|"
    "kebijakan|สแปม|อีเมลขยะ|เมลขยะ|นโยบาย|บัญชีดำ|черен списък|репутац|信譽|广告邮件|廣告郵件|迷惑行為|受信拒否|"
    "受信を拒否|なりすまし|수신거부|수신 거부|정크|service refuse|refuse par la politique";

constexpr std::string_view LikelySoft =
    "kontingent|nicht erreichbar|vorubergehend|voruebergehend|antwortet nicht|deaktiviert|verbindung|zu gross|"
    "inaktiv|grenze|uberschritten|ueberschritten|pleine|depasse|temporairement|injoignable|ne repond pas|"
    "desactive|suspendu|trop volumineux|connexion|excedid|excede|temporalmente|temporariamente|no responde|"
    "nao responde|deshabilitad|desactivad|desativad|suspendid|suspensa|suspenso|demasiado grande|muito grande|"
    "inactiva|inativ|esgotad|conexion|conexao|superato|superata|temporaneamente|non risponde|disabilitat|"
    "disattivat|sospes|troppo grande|scaduto|connessione|overschreden|tijdelijk|uitgeschakeld|te groot|"
    "verbinding|przekroczon|tymczasow|limit czasu|nie odpowiada|zbyt duz|wylaczon|polaczeni|tillfallig|"
    "midlertidig|docasne|docasna|превыш|временно|истекло|не отвечает|отключен|слишком больш|неактив|соединени|"
    "超過|一時的|停止|サイズが|期限切れ|大きすぎ|接続|超过|超出|暂时|暫時|停用|禁用|冻结|过大|過大|连接|連線|"
    "稍后|초과|일시적|정지|너무 큽|너무 커|연결|nicht verfugbar|uberlast|wartung|indisponible|no disponible|"
    "indispon|non disponibile|niet beschikbaar|otillganglig|utilgaengelig|utilgjengelig|niedostepn|nedostupn|"
    "nem elerheto|indisponibil|ulasilamiyor|недоступ|недостъп|δεν ανταποκρινεται|προσωριν|לא זמין|זמנית|مؤقت|"
    "tam thoi|sementara|ชั่วคราว|不可用|无法连接|無法連接|维护|維護|接続に失敗|일시 정지";

constexpr std::string_view LikelyBlocked =
    "blockiert|gesperrt|nicht erlaubt|nicht erlaubten|bloque|bloquead|no permitid|nao permitid|bloccat|"
    "non consentit|geblokkeerd|zablokowan|заблокирован|запрещен|ブロック|受信拒否|封锁|屏蔽|拦截|차단|수신 거부|"
    "blockerad|blokeret|blokkert|estetty|zablokovan|letiltott|blocat|engellen|блокиран|заблокован|blokiran|μπλοκ|"
    "αποκλε|נחסם|חסומ|محظور|تم حظر|مسدود|bi chan|diblokir|disekat|ถูกบล็อก|封鎖|攔截|遮断|蓝名单";

constexpr std::string_view VagueBlocked =
    "abgelehnt|zuruckgewiesen|zurueckgewiesen|verweigert|refuse par|a ete refuse|est refuse|message refuse|"
    "rejete|rechazad|rejeitad|recusad|rifiutat|respint|geweigerd|odrzucon|odmitnut|zamitnut|отклонен|отвергнут|"
    "отказано|拒否|拒收|拒绝|拒絕|거부|abgewiesen|refuse|rehus|avvisad|avvisat|afvist|avvist|nekad|hylatty|"
    "elutasit|respins|reddedil|відхилен|отхвърлен|odbijen|zavrn|απορριφθηκε|נדחתה|נדחה|مرفوض|تم رفض|رد شد|"
    "tu choi|ditolak|ปฏิเสธ";

}  // namespace

std::span<const CPhraseTable> LocalPhrases() noexcept {
    using enum BounceClass;
    static constexpr std::array<CPhraseTable, 6> Tables = {{{ClearHard, Hard, ReplyWeight::Clear},
                                                            {ClearSoft, Soft, ReplyWeight::Clear},
                                                            {ClearBlocked, Blocked, ReplyWeight::Clear},
                                                            {LikelySoft, Soft, ReplyWeight::Likely},
                                                            {LikelyBlocked, Blocked, ReplyWeight::Likely},
                                                            {VagueBlocked, Blocked, ReplyWeight::Vague}}};
    return Tables;
}
